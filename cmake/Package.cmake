# The Debian package: `scripts/build.sh deb` runs cpack on the release build.
# It installs the tree of cmake/Install.cmake under /opt/corvane, the unit
# under /lib/systemd/system and the manual page under /usr/share/man; its
# scripts make the service's system user (contrib/debian/).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane-xmlrpcserver)
set(CPACK_PACKAGE_VENDOR Holvenmark)
set(CPACK_PACKAGE_CONTACT "Corvane developers <dev@corvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "XML-RPC gateway of the Corvane transcoding system")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION}.0)
set(CPACK_PACKAGING_INSTALL_PREFIX /opt/corvane)
set(CPACK_INSTALL_PREFIX /opt/corvane)
# The prefix stays /opt/corvane while installing into the staging folder,
# so the unit names the program where the package puts it.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "avahi-daemon")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "XML-RPC gateway of the Corvane transcoding system.\n Outside clients call XML-RPC methods over HTTP; the server turns each\n call into a command for the local Corvane client proxy and answers with\n its reply. Includes the client proxy simulator and a dashboard page.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/contrib/debian/postinst
    ${PROJECT_SOURCE_DIR}/contrib/debian/prerm
    ${PROJECT_SOURCE_DIR}/contrib/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# cpack installs what is built; scripts/build.sh deb builds only the programs.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
include(CPack)
