# The functions that the shared library shows are those of one list, a name a line, "#" before comments. What came
# after the first release bears the comment "# since 5.31": each release has a version node of its own, so that a
# program needs no newer library than its functions do.
#
# Included by the build it offers brisolt_export_only(target list) and brisolt_read_exports(list result [release]);
# run as a script (cmake -D LIST=... -D OUTPUT=... -P exports.cmake) it writes the linker's version script.

set(BRISOLT_FIRST_RELEASE 5.30)

# The names of the list, or those of one release.
function(brisolt_read_exports list result)
    file(STRINGS "${list}" lines REGEX "^[ \t]*[A-Za-z_]")
    if(ARGC GREATER 2 AND ARGV2 STREQUAL BRISOLT_FIRST_RELEASE)
        list(FILTER lines EXCLUDE REGEX "# since ")
    elseif(ARGC GREATER 2)
        list(FILTER lines INCLUDE REGEX "# since ${ARGV2}$")
    endif()
    list(TRANSFORM lines REPLACE "#.*" "")
    list(TRANSFORM lines STRIP)
    set(${result} "${lines}" PARENT_SCOPE)
endfunction()

function(brisolt_export_only target list)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
    set(generator "${CMAKE_CURRENT_FUNCTION_LIST_FILE}")
    add_custom_command(
        OUTPUT "${script}"
        COMMAND "${CMAKE_COMMAND}" -D "LIST=${list}" -D "OUTPUT=${script}" -P "${generator}"
        DEPENDS "${list}" "${generator}"
        COMMENT "Making the version script of ${target}"
        VERBATIM)
    target_sources(${target} PRIVATE "${script}")
    target_link_options(${target} PRIVATE "-Wl,--version-script,${script}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${script}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    file(STRINGS "${LIST}" releases REGEX "# since ")
    list(TRANSFORM releases REPLACE ".*# since " "")
    list(REMOVE_DUPLICATES releases)
    list(SORT releases COMPARE NATURAL)
    set(script "")
    set(before "")
    set(hidden "    local:\n        *;\n")
    foreach(release IN LISTS BRISOLT_FIRST_RELEASE releases)
        if(NOT release MATCHES "^[0-9]+\\.[0-9]+$")
            message(FATAL_ERROR "${LIST}: \"# since ${release}\" names no release")
        endif()
        brisolt_read_exports("${LIST}" names "${release}")
        list(JOIN names ";\n        " body)
        string(APPEND script "BRISOLT_${release} {\n    global:\n        ${body};\n${hidden}}${before};\n")
        set(before " BRISOLT_${release}")
        set(hidden "")
    endforeach()
    file(WRITE "${OUTPUT}" "${script}")
endif()
