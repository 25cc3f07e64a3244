# The functions that the shared library shows are those of one list, a name a line, "#" before comments.
#
# Included by the build it offers brisolt_export_only(target list) and brisolt_read_exports(list result);
# run as a script (cmake -D LIST=... -D OUTPUT=... -P exports.cmake) it writes the linker's version script.

function(brisolt_read_exports list result)
    file(STRINGS "${list}" lines REGEX "^[ \t]*[A-Za-z_]")
    list(TRANSFORM lines REPLACE "#.*" "")
    list(TRANSFORM lines STRIP)
    set(${result} "${lines}" PARENT_SCOPE)
endfunction()

function(brisolt_export_only target list)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
    set(generator "${CMAKE_CURRENT_FUNCTION_LIST_FILE}")
    add_custom_command(
        OUTPUT "${script}"
        COMMAND "${CMAKE_COMMAND}" -D "LIST=${list}" -D "OUTPUT=${script}"
                -D "VERSION=BRISOLT_${PROJECT_VERSION_MAJOR}" -P "${generator}"
        DEPENDS "${list}" "${generator}"
        COMMENT "Making the version script of ${target}"
        VERBATIM)
    target_sources(${target} PRIVATE "${script}")
    target_link_options(${target} PRIVATE "-Wl,--version-script,${script}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${script}")
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    brisolt_read_exports("${LIST}" names)
    list(JOIN names ";\n        " body)
    file(WRITE "${OUTPUT}" "${VERSION} {\n    global:\n        ${body};\n    local:\n        *;\n};\n")
endif()
