# The manual pages of the commands, where scdoc is there to make them, and completions for three shells.
find_program(BRISOLT_SCDOC scdoc)
if(BRISOLT_SCDOC)
    file(GLOB page_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.1.scd")
    set(pages)
    foreach(source IN LISTS page_sources)
        cmake_path(GET source STEM LAST_ONLY page)
        set(page "${PROJECT_BINARY_DIR}/man/${page}")
        add_custom_command(OUTPUT "${page}"
            COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/man"
            COMMAND "${BRISOLT_SCDOC}" < "${source}" > "${page}"
            DEPENDS "${source}" VERBATIM)
        list(APPEND pages "${page}")
    endforeach()
    add_custom_target(brisolt-man ALL DEPENDS ${pages})
    install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
else()
    message(STATUS "No manual pages: scdoc is not there (Debian: scdoc).")
endif()

set(completions "${PROJECT_SOURCE_DIR}/share/completions")
foreach(command IN ITEMS brisolt brisolt-modem)
    install(FILES "${completions}/${command}.bash" RENAME "${command}"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
    install(FILES "${completions}/_${command}" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
    install(FILES "${completions}/${command}.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
endforeach()
