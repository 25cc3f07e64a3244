# The headers, the library, the command, and the files by which pkg-config and CMake find them.
include(CMakePackageConfigHelpers)

install(FILES include/brisolt.h include/brisolt_host.h include/brisolt.hpp DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY include/brisolt DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(TARGETS brisolt EXPORT brisolt)
if(TARGET brisolt_tapi32)
    # Beside the library, where it looks for it.
    install(TARGETS brisolt_tapi32 LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
    install(FILES share/telephony.ini DESTINATION "${CMAKE_INSTALL_DATADIR}/brisolt")
endif()
if(TARGET brisolt_tls)
    install(TARGETS brisolt_tls LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
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
install(FILES share/modems.txt DESTINATION "${CMAKE_INSTALL_DATADIR}/brisolt")
install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")

# A pkg-config file that finds its prefix from its own place serves a tree that was moved or installed
# with another prefix than it was configured with.
set(pkgconfig_directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH prefix_from_pkgconfig
    "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
cmake_path(SET prefix_from_pkgconfig NORMALIZE "${prefix_from_pkgconfig}")
configure_file(packaging/brisolt.pc.in brisolt.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/brisolt.pc" DESTINATION "${pkgconfig_directory}")

set(package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/brisolt")
install(EXPORT brisolt NAMESPACE brisolt:: FILE brisoltConfig.cmake DESTINATION "${package_directory}")
write_basic_package_version_file(brisoltConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/brisoltConfigVersion.cmake" DESTINATION "${package_directory}")
