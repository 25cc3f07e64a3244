# The headers, the library, the commands, and the files by which pkg-config and CMake find them.
if(NOT BRISOLT_INSTALL)
    return()
endif()
include(CMakePackageConfigHelpers)

install(FILES include/brisolt.h include/brisolt_host.h include/brisolt.hpp DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY include/brisolt DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
if(BUILD_SHARED_LIBS)
    install(TARGETS brisolt EXPORT brisolt)
    set_target_properties(brisolt_archive PROPERTIES EXPORT_NAME brisolt_static)
else()
    set_target_properties(brisolt_archive PROPERTIES EXPORT_NAME brisolt)
endif()
install(TARGETS brisolt_archive EXPORT brisolt)

# What only this library looks for, where its next soname does not: see BRISOLT_OWN_FOLDER.
set(own_modules "${CMAKE_INSTALL_LIBDIR}/${BRISOLT_OWN_FOLDER}")
set(own_data "${CMAKE_INSTALL_DATADIR}/${BRISOLT_OWN_FOLDER}")
if(TARGET brisolt_tapi32)
    install(TARGETS brisolt_tapi32 LIBRARY DESTINATION "${own_modules}")
    install(FILES share/telephony.ini DESTINATION "${own_data}")
endif()
if(TARGET brisolt_tls)
    install(TARGETS brisolt_tls LIBRARY DESTINATION "${own_modules}")
endif()
if(TARGET brisolt-command)
    install(TARGETS brisolt-command)
endif()
if(TARGET brisolt-modem)
    install(TARGETS brisolt-modem)
endif()
if(TARGET brisolt-command)
    include(cmake/command_pages.cmake)
endif()
install(FILES share/modems.txt DESTINATION "${own_data}")
# The usual folder is named after the outermost project.
if(PROJECT_IS_TOP_LEVEL)
    install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")
else()
    install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/brisolt")
endif()

# A pkg-config file that finds its prefix from its own place serves a tree that was moved or installed
# with another prefix than it was configured with. In the system's own places it says so, and pkg-config leaves
# out what every compiler knows.
set(pkgconfig_directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH pkgconfig_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
cmake_path(SET pkgconfig_prefix NORMALIZE "${pkgconfig_prefix}")
string(PREPEND pkgconfig_prefix "\${pcfiledir}/")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(pkgconfig_prefix /usr)
endif()
# Without a shared library every program links the archive and what that needs.
list(TRANSFORM cxx_runtime PREPEND "-l" OUTPUT_VARIABLE static_libraries)
list(JOIN static_libraries " " static_libraries)
if(BUILD_SHARED_LIBS)
    set(public_libraries "")
else()
    set(public_libraries " ${static_libraries}")
    set(static_libraries "")
endif()
configure_file(packaging/brisolt.pc.in brisolt.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/brisolt.pc" DESTINATION "${pkgconfig_directory}")

set(package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/brisolt")
install(EXPORT brisolt NAMESPACE brisolt:: FILE brisoltTargets.cmake DESTINATION "${package_directory}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/brisoltConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES packaging/brisoltConfig.cmake "${PROJECT_BINARY_DIR}/brisoltConfigVersion.cmake"
    DESTINATION "${package_directory}")

# Last, with the prefix as it is then: strips the archive, which CMake itself leaves alone, and tells how to be found.
configure_file(packaging/after_install.cmake.in after_install.cmake @ONLY)
install(SCRIPT "${PROJECT_BINARY_DIR}/after_install.cmake")
