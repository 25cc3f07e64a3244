# Installs the build into a fresh prefix and uses it as a stranger would: a program is built against the
# installed tree through CMake's package and through pkg-config, and run; the installed command starts.
set(work "${BUILD}/installed_tree")
set(prefix "${work}/prefix")
set(program_source "${SOURCE}/examples/minimal")
file(REMOVE_RECURSE "${work}")
unset(ENV{DESTDIR})
unset(ENV{LD_LIBRARY_PATH})

function(run)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
    if(result)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}: ${result}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(run_program)
    run(${ARGN})
    if(NOT output MATCHES "hello")
        message(FATAL_ERROR "the program did not receive what it sent:\n${output}")
    endif()
endfunction()

run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${prefix}")
foreach(file IN ITEMS include/brisolt.hpp share/man/man3/brisolt_stream.3 share/man/man3/ComRead.3)
    if(NOT EXISTS "${prefix}/${file}")
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()

run("${CMAKE_COMMAND}" -S "${program_source}" -B "${work}/package" -G "${GENERATOR}"
    "-DCMAKE_C_COMPILER=${COMPILER}" "-DCMAKE_PREFIX_PATH=${prefix}")
run("${CMAKE_COMMAND}" --build "${work}/package")
run_program("${work}/package/minimal")

file(GLOB_RECURSE pkgconfig_file "${prefix}/brisolt.pc")
cmake_path(GET pkgconfig_file PARENT_PATH pkgconfig_directory)
set(ENV{PKG_CONFIG_PATH} "${pkgconfig_directory}")
run(pkg-config --cflags --libs brisolt)
separate_arguments(flags UNIX_COMMAND "${output}")
run("${COMPILER}" -o "${work}/minimal" "${program_source}/minimal.c" ${flags})
run(pkg-config --variable=libdir brisolt)
string(STRIP "${output}" library_directory)
run_program("${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${library_directory}" "${work}/minimal")

if(EXISTS "${prefix}/bin/brisolt")
    run("${prefix}/bin/brisolt" --help)
endif()

file(REMOVE_RECURSE "${work}")
