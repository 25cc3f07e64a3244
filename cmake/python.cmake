# The Python package: its two modules in C, built beside its sources so that BUILD/python on PYTHONPATH is the whole
# package, then installed with them, and its tests.
#
# The interpreter is the distribution's, for which the packages that it needs are; BRISOLT_PYTHON_INTERPRETER names
# another.

find_program(BRISOLT_PYTHON_INTERPRETER python3 PATHS /usr/bin /usr/local/bin NO_DEFAULT_PATH
    DOC "The interpreter that the Python package is built for")

# What the interpreter tells: its version, its headers, the end of a module's file name, cffi's version.
set(python_facts "")
if(BRISOLT_PYTHON_INTERPRETER)
    execute_process(
        COMMAND "${BRISOLT_PYTHON_INTERPRETER}" -c "
import os, sys, sysconfig
import cffi
include = sysconfig.get_path('include')
assert sys.version_info >= (3, 11) and os.path.exists(os.path.join(include, 'Python.h'))
print('%d.%d' % sys.version_info[:2], include, sysconfig.get_config_var('EXT_SUFFIX'), sep=';', end='')"
        OUTPUT_VARIABLE python_facts ERROR_QUIET)
endif()

option(BRISOLT_PYTHON "Build the Python package" ${PROJECT_IS_TOP_LEVEL})
# The interpreter has no sanitizer in it, so it could not load the modules of a sanitized library.
if(NOT BRISOLT_PYTHON OR BRISOLT_SANITIZE)
    return()
endif()
if(NOT python_facts)
    message(STATUS "Without the Python package: it needs Python 3.11, its headers and cffi "
        "(Debian: python3-dev python3-cffi)")
    return()
endif()
list(GET python_facts 0 python_version)
list(GET python_facts 1 python_include)
list(GET python_facts 2 python_suffix)

set(python_source "${PROJECT_SOURCE_DIR}/python")
set(python_build "${PROJECT_BINARY_DIR}/python")
set(python_package "${python_build}/brisolt")

# ---- The modules in C -----------------------------------------------------------------------------

file(GLOB python_headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/include/*.h"
    "${PROJECT_SOURCE_DIR}/include/brisolt/*.h")
set(binding "${PROJECT_BINARY_DIR}/python-binding/_native.c")
add_custom_command(
    OUTPUT "${binding}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/python-binding"
    COMMAND "${CMAKE_COMMAND}" -E env PYTHONDONTWRITEBYTECODE=1
            "${BRISOLT_PYTHON_INTERPRETER}" "${python_source}/build_native.py" "${binding}"
    DEPENDS "${python_source}/build_native.py" "${python_source}/declarations.py" ${python_headers}
    COMMENT "Making the Python binding from the headers"
    VERBATIM)

function(brisolt_python_module name)
    add_library(brisolt_python${name} MODULE ${ARGN})
    target_include_directories(brisolt_python${name} SYSTEM PRIVATE "${python_include}")
    target_include_directories(brisolt_python${name} PRIVATE
        "${PROJECT_SOURCE_DIR}/include" "${python_source}/brisolt")
    # The interpreter's headers want its dialect of C.
    set_target_properties(brisolt_python${name} PROPERTIES
        C_STANDARD 11
        C_EXTENSIONS ON
        C_VISIBILITY_PRESET hidden
        PREFIX ""
        OUTPUT_NAME "${name}"
        SUFFIX "${python_suffix}"
        LIBRARY_OUTPUT_DIRECTORY "${python_package}")
endfunction()

brisolt_python_module(_line "${python_source}/brisolt/_line.c")
target_compile_options(brisolt_python_line PRIVATE -Wall -Wextra -Wconversion -Wshadow)
brisolt_python_module(_native "${binding}")
target_compile_options(brisolt_python_native PRIVATE -w) # cffi's
target_link_libraries(brisolt_python_native PRIVATE brisolt)

# ---- The package as a whole -----------------------------------------------------------------------

file(GLOB_RECURSE python_files CONFIGURE_DEPENDS RELATIVE "${python_source}"
    "${python_source}/brisolt/*.py" "${python_source}/brisolt/*.pyi" "${python_source}/brisolt/py.typed"
    "${python_source}/brisolt/METADATA" "${python_source}/brisolt/entry_points.txt")
set(copies "")
foreach(file IN LISTS python_files)
    add_custom_command(
        OUTPUT "${python_build}/${file}"
        COMMAND "${CMAKE_COMMAND}" -E copy "${python_source}/${file}" "${python_build}/${file}"
        DEPENDS "${python_source}/${file}"
        VERBATIM)
    list(APPEND copies "${python_build}/${file}")
endforeach()
add_custom_target(brisolt_python ALL DEPENDS ${copies})

# By this, name and version are found. Without RECORD and with an installer of another name pip leaves it alone. What
# the package needs is there with what was built, so it need not be told once more.
set(python_metadata "brisolt-${PROJECT_VERSION}.dist-info")
file(GLOB stale "${python_build}/brisolt-*.dist-info")
list(REMOVE_ITEM stale "${python_build}/${python_metadata}")
if(stale)
    file(REMOVE_RECURSE ${stale})
endif()
configure_file("${python_source}/METADATA.in" "${python_build}/${python_metadata}/METADATA" @ONLY)
file(CONFIGURE OUTPUT "${python_build}/${python_metadata}/INSTALLER" CONTENT "cmake\n")
file(STRINGS "${python_source}/pyproject.toml" same_version REGEX "^version = \"${PROJECT_VERSION}\"$")
if(NOT same_version)
    message(FATAL_ERROR "python/pyproject.toml is of another version than ${PROJECT_VERSION}")
endif()
add_dependencies(brisolt_python brisolt_python_line brisolt_python_native)

# Where the interpreter of that prefix looks.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr/local")
    set(place "lib/python${python_version}/dist-packages")
else()
    set(place "lib/python3/dist-packages")
endif()
set(BRISOLT_PYTHON_DIR "${place}" CACHE STRING "Folder of Python packages, below the prefix")
file(RELATIVE_PATH to_library "${CMAKE_INSTALL_PREFIX}/${BRISOLT_PYTHON_DIR}/brisolt" "${CMAKE_INSTALL_FULL_LIBDIR}")
set_target_properties(brisolt_python_native PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
install(TARGETS brisolt_python_line brisolt_python_native LIBRARY DESTINATION "${BRISOLT_PYTHON_DIR}/brisolt")
foreach(file IN LISTS python_files)
    cmake_path(GET file PARENT_PATH folder)
    install(FILES "${python_source}/${file}" DESTINATION "${BRISOLT_PYTHON_DIR}/${folder}")
endforeach()
# In the place of another version's.
install(CODE "file(GLOB stale \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${BRISOLT_PYTHON_DIR}/brisolt-*.dist-info\")
if(stale)
    file(REMOVE_RECURSE \${stale})
endif()")
install(DIRECTORY "${python_build}/${python_metadata}" DESTINATION "${BRISOLT_PYTHON_DIR}")

# ---- Tests and figures ----------------------------------------------------------------------------

set(python_environment "PYTHONPATH=${python_build}" "PYTHONPYCACHEPREFIX=${PROJECT_BINARY_DIR}/python-cache"
    "BRISOLT_SOURCE=${PROJECT_SOURCE_DIR}" "BRISOLT_LIBRARY_DIR=$<TARGET_FILE_DIR:brisolt>"
    "BRISOLT_MODEM=${PROJECT_BINARY_DIR}/bin/brisolt-modem")

if(BRISOLT_TESTS)
    execute_process(COMMAND "${BRISOLT_PYTHON_INTERPRETER}" -c "import pytest" RESULT_VARIABLE no_pytest ERROR_QUIET)
    if(no_pytest)
        message(FATAL_ERROR "The tests of the Python package need pytest (Debian: python3-pytest). "
            "-DBRISOLT_PYTHON=OFF builds without the package.")
    endif()
    file(GLOB python_tests CONFIGURE_DEPENDS "${python_source}/tests/test_*.py")
    foreach(test IN LISTS python_tests)
        cmake_path(GET test STEM stem)
        string(REGEX REPLACE "^test_" "" stem "${stem}")
        add_test(NAME "python.${stem}"
            COMMAND "${BRISOLT_PYTHON_INTERPRETER}" -m pytest -q -rs -p no:cacheprovider "${test}")
        set_tests_properties("python.${stem}" PROPERTIES
            ENVIRONMENT "${python_environment}" TIMEOUT 300 COST 50 LABELS python)
    endforeach()
endif()

add_custom_target(bench-python
    COMMAND "${CMAKE_COMMAND}" -E env ${python_environment}
            "${BRISOLT_PYTHON_INTERPRETER}" "${python_source}/bench/bench.py"
    USES_TERMINAL
    VERBATIM)
add_dependencies(bench-python brisolt_python)
