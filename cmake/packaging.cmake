# The Debian package: `cpack -G DEB` in the build directory makes
# vela-system-generator_<version>_<arch>.deb from what `cmake --install` puts
# in place. Installed under /, like Debian 12's own systemd: the generator in
# /lib/systemd/system-generators/, the two platform libraries in /lib/, where
# the generator's run path ($ORIGIN/../..) finds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vela-system-generator)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Vela platform developers <platform-dev@vela.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "systemd generator that applies the Vela platform's unit policy")
# The summary above is its first line.
string(CONCAT CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "At every boot and every reload of the service manager it masks the units\n"
  "the platform does not support, links units into the targets they are\n"
  "packed in or must survive an isolation to, adds the pack and reason\n"
  "drop-ins, enables the units that are enabled by default, and on the first\n"
  "boot after an upgrade migrates the legacy service configuration.\n"
  "The stand-in platform libraries libvelasystemd.so.7 and libvelacore.so.7\n"
  "are included; a platform's own libraries of the same sonames replace them.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_STRIP_FILES ON)
# Depends: computed by dpkg-shlibdeps from what the binaries link (jsoncpp,
# Boost.Filesystem, the C and C++ runtimes); the two platform libraries are
# part of the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file for the two libraries, and the ldconfig trigger.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
include(CPack)
