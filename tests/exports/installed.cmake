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
# The archive alone, as where no shared library is.
run(pkg-config --static --cflags --libs brisolt)
string(REPLACE "-lbrisolt" "-l:libbrisolt.a" output "${output}")
separate_arguments(flags UNIX_COMMAND "${output}")
run("${COMPILER}" -o "${work}/minimal_static" "${program_source}/minimal.c" ${flags})
run_program("${work}/minimal_static")

run(pkg-config --cflags --libs brisolt)
separate_arguments(flags UNIX_COMMAND "${output}")
run("${COMPILER}" -o "${work}/minimal" "${program_source}/minimal.c" ${flags})
run(pkg-config --variable=libdir brisolt)
string(STRIP "${output}" library_directory)
run_program("${CMAKE_COMMAND}" -E env "LD_LIBRARY_PATH=${library_directory}" "${work}/minimal")

if(EXISTS "${prefix}/bin/brisolt")
    run("${prefix}/bin/brisolt" --help)
endif()

# Inside another project the library is of that project's kind, and nothing of ours is installed: a configured
# folder without a single built file would otherwise fail to.
file(WRITE "${work}/embedded/CMakeLists.txt" [[
cmake_minimum_required(VERSION 3.16)
project(embedded LANGUAGES C CXX)
include(FetchContent)
FetchContent_Declare(brisolt SOURCE_DIR "${SOURCE}")
FetchContent_MakeAvailable(brisolt)
get_target_property(target brisolt::brisolt ALIASED_TARGET)
get_target_property(type ${target} TYPE)
if(NOT type STREQUAL WANTED OR TARGET brisolt-command OR TARGET brisolt_tapi32)
    message(FATAL_ERROR "a ${type} instead of a ${WANTED}, or more than the library")
endif()
]])
foreach(kind IN ITEMS "STATIC;OFF" "SHARED;ON")
    list(GET kind 0 wanted)
    list(GET kind 1 shared)
    run("${CMAKE_COMMAND}" -S "${work}/embedded" -B "${work}/embedded/${wanted}" -G "${GENERATOR}" "-DSOURCE=${SOURCE}"
        "-DWANTED=${wanted}_LIBRARY" "-DBUILD_SHARED_LIBS=${shared}" "-DCMAKE_C_COMPILER=${COMPILER}")
    run("${CMAKE_COMMAND}" --install "${work}/embedded/${wanted}" --prefix "${work}/embedded/nothing")
    if(EXISTS "${work}/embedded/nothing")
        message(FATAL_ERROR "the embedded library installs files of its own")
    endif()
endforeach()

file(REMOVE_RECURSE "${work}")
