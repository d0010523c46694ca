include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Platform)

configure_package_config_file(cmake/PlatformConfig.cmake.in PlatformConfig.cmake
    INSTALL_DESTINATION ${package_folder})
# Before 1.0 a new minor version may change what is there.
write_basic_package_version_file(PlatformConfigVersion.cmake COMPATIBILITY SameMinorVersion)

install(TARGETS Platform EXPORT PlatformTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT PlatformTargets NAMESPACE Platform:: DESTINATION ${package_folder})
install(FILES ${PROJECT_BINARY_DIR}/PlatformConfig.cmake
              ${PROJECT_BINARY_DIR}/PlatformConfigVersion.cmake
        DESTINATION ${package_folder})
