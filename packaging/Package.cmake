# The Debian package (scripts/package): CPack's DEB generator over the
# install rules of packaging/, installed under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillon-server)
set(CPACK_PACKAGE_VENDOR Brookfen)
set(CPACK_PACKAGE_CONTACT "Brookfen <support@quillonserver.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tray application that runs the Quillon media server")
# The long description; CPack puts the summary above it.
set(CPACK_PACKAGE_DESCRIPTION "Quillon Server shares the folders you choose with web browsers, phones and
tablets on your network or over the internet. It lives in the system tray,
starts and stops the server and keeps its settings: shared and conversion
folders, the conversion queue, remote access, port, password, converter and
subtitle settings.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://www.quillonserver.com/quillon)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# The linked libraries (Qt, C++ runtime) with their versions come from
# dpkg-shlibdeps; what is loaded at run time is listed here: the Qt platform
# plugins, the JVM (dlopen), the jars the resource folder links to, ffmpeg.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "qt6-qpa-plugins, openjdk-17-jre-headless, libjna-java, libjetty9-java, libservlet-api-java, ffmpeg")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
