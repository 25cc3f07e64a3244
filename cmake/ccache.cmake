# Compiles through ccache where it is installed and has a place to keep its cache (an account without a
# home has none, and then every compilation would fail).
find_program(CCACHE_PROGRAM ccache)
mark_as_advanced(CCACHE_PROGRAM)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    execute_process(COMMAND "${CCACHE_PROGRAM}" --get-config cache_dir
        OUTPUT_VARIABLE cache_dir OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE failed ERROR_QUIET)
    if(NOT failed)
        execute_process(COMMAND "${CMAKE_COMMAND}" -E make_directory "${cache_dir}"
            RESULT_VARIABLE failed ERROR_QUIET)
    endif()
    if(NOT failed)
        set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
        set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
    endif()
endif()
