include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Platform)
get_property(programs GLOBAL PROPERTY PLATFORM_PROGRAMS)

configure_package_config_file(cmake/PlatformConfig.cmake.in PlatformConfig.cmake
    INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_BINDIR)
# Before 1.0 a new minor version may change what is there.
write_basic_package_version_file(PlatformConfigVersion.cmake COMPATIBILITY SameMinorVersion)

# The same for pkg-config, which finds the rest from where the file stands.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE prefix_from_pc)
configure_file(cmake/platform.pc.in platform.pc @ONLY)

install(TARGETS Platform EXPORT PlatformTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT PlatformTargets NAMESPACE Platform:: DESTINATION ${package_folder})
install(FILES ${PROJECT_BINARY_DIR}/PlatformConfig.cmake
              ${PROJECT_BINARY_DIR}/PlatformConfigVersion.cmake
        DESTINATION ${package_folder})
install(FILES ${PROJECT_BINARY_DIR}/platform.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(GLOB man_pages CONFIGURE_DEPENDS docs/man/*.1)
install(FILES ${man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/platform RENAME copyright)
