# cpack makes one package for Debian and its kin.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME platform)
set(CPACK_PACKAGE_CONTACT "The Platform developers <platform@localhost.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Hands the edits and prompts of version-control tools to a host: the programs
editor-shim and askpass-shim, which ask, terminal-host, which answers, and
the C++20 library that they and other hosts are made of.")
# Static programs depend on nothing; a shared library is asked what it needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ${BUILD_SHARED_LIBS})
include(CPack)
