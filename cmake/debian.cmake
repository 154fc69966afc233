# Debian packages, one per install component (cmake/install.cmake):
#
#   runtime      -> libpalvonauthmanager1     (Section libs)
#   development  -> libpalvonauthmanager-dev  (Section libdevel)
#   tools        -> palvonauth                (Section net)
#
# `cmake --workflow --preset deb` configures build/deb for the prefix /usr,
# builds it and writes the packages there (`cpack` in that folder does the
# last step alone). packaging/debian/ holds what the packages carry beside the
# installed files: the copyright, the changelog (whose first entry gives the
# package version), the library's ldconfig trigger, the API reference's
# doc-base registration and lintian overrides.
set(PAM_DEBIAN_DIR ${PROJECT_SOURCE_DIR}/packaging/debian)
# The library package is named after the SONAME, libpalvonauthmanager.so.<N>.
get_target_property(PAM_SOVERSION palvonauthmanager SOVERSION)
set(PAM_DEBIAN_LIBRARY_PACKAGE libpalvonauthmanager${PAM_SOVERSION})
set(PAM_DEBIAN_PACKAGES
  runtime ${PAM_DEBIAN_LIBRARY_PACKAGE} development libpalvonauthmanager-dev tools palvonauth)

# The Debian revision comes from the changelog's first line,
# "palvonauthmanager (<upstream version>-<revision>) ...".
file(STRINGS ${PAM_DEBIAN_DIR}/changelog PAM_CHANGELOG_HEAD LIMIT_COUNT 1)
if(NOT PAM_CHANGELOG_HEAD MATCHES "^palvonauthmanager \\(([^ )]+)-([^ )-]+)\\)")
  message(FATAL_ERROR "${PAM_DEBIAN_DIR}/changelog: the first line names no version: ${PAM_CHANGELOG_HEAD}")
endif()
set(CPACK_PAM_CHANGELOG_UPSTREAM_VERSION ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})

# Files only the packages carry: /usr/share/doc/<package>/copyright and
# changelog.Debian.gz, and /usr/share/lintian/overrides/<package>. They are
# left out of a plain `cmake --install`.
set(PAM_CHANGELOG_GZ ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz)
add_custom_command(OUTPUT ${PAM_CHANGELOG_GZ}
  COMMAND ${CMAKE_COMMAND} -E copy ${PAM_DEBIAN_DIR}/changelog ${PROJECT_BINARY_DIR}/debian/changelog.Debian
  COMMAND ${PAM_GZIP} -9nf ${PROJECT_BINARY_DIR}/debian/changelog.Debian
  DEPENDS ${PAM_DEBIAN_DIR}/changelog VERBATIM)
add_custom_target(pam_debian_changelog ALL DEPENDS ${PAM_CHANGELOG_GZ})
add_dependencies(pam_installed_files pam_debian_changelog)
set(PAM_DEBIAN_COMPONENTS)
while(PAM_DEBIAN_PACKAGES)
  list(POP_FRONT PAM_DEBIAN_PACKAGES component package)
  list(APPEND PAM_DEBIAN_COMPONENTS ${component})
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  install(FILES ${PAM_DEBIAN_DIR}/copyright ${PAM_CHANGELOG_GZ}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(EXISTS ${PAM_DEBIAN_DIR}/${package}.lintian-overrides)
    install(FILES ${PAM_DEBIAN_DIR}/${package}.lintian-overrides RENAME ${package}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endwhile()

if(PAM_INSTALL_API_REFERENCE)
  install(FILES ${PAM_DEBIAN_DIR}/libpalvonauthmanager-dev.doc-base RENAME libpalvonauthmanager-dev
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc-base COMPONENT development EXCLUDE_FROM_ALL)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION [[
client library of the per-user Palvon authentication manager
libpalvonauthmanager sends every call of its flat PalvonAuthManager_*
interface as a typed key/value message over a pair of named pipes to the
authentication-manager service of the same user, and hands back the
service's result codes and values. Applications use it to sign on to
remote sessions and to reach web resources behind an authenticating
gateway.

This package holds the shared library.]])

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION [[
development files of the Palvon authentication-manager client library
libpalvonauthmanager sends every call of its flat PalvonAuthManager_*
interface as a typed key/value message over a pair of named pipes to the
authentication-manager service of the same user.

This package holds the C and C++ headers, the pkg-config file, the CMake
package (find_package(PalvonAuthManager)) and the HTML API reference.]])

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION [[
command-line tool and reference service of the Palvon authentication manager
palvonauth makes the calls of libpalvonauthmanager from the shell or a
script: connections, gateway discovery, logon state, VPN authorisation
and HTTP requests through the service, with plain or JSON output.

palvonauthd is the reference authentication-manager service. Each user
runs one, started by the systemd user unit palvonauthd.service
(systemctl --user enable --now palvonauthd).]])

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${PAM_DEBIAN_COMPONENTS})
set(CPACK_PACKAGE_NAME palvonauthmanager)
set(CPACK_PACKAGE_VENDOR "Palvon")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Palvon SDK developers <dev@palvon.example>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://palvon.example/sdk")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE palvonauthmanager)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Dependencies (libc, libstdc++, libcurl for the service) come from the
# binaries themselves; the tool's own library is found in the library
# package's staging folder, beside the tool's (dpkg-shlibdeps runs in the
# staging folder of the package it works for). The development package has
# no binaries to look at.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../runtime/usr/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The library package's control files beside the ldconfig trigger: shlibs,
# written here, and symbols, which debian-prepare.cmake makes from the staged
# library. (CPack's own shlibs would have it run `file` on every staged file
# of every package, the API reference's pages included.)
set(PAM_DEBIAN_SYMBOLS ${PROJECT_BINARY_DIR}/debian/symbols)
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libpalvonauthmanager ${PAM_SOVERSION} ${PAM_DEBIAN_LIBRARY_PACKAGE} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PAM_DEBIAN_DIR}/triggers ${PROJECT_BINARY_DIR}/debian/shlibs ${PAM_DEBIAN_SYMBOLS})
# Run by cpack: debian-prepare.cmake between staging and packing (checks,
# stripping, the symbols file), debian-no-ldconfig-scripts.cmake on the
# finished packages.
set(CPACK_PAM_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PAM_STRIP ${CMAKE_STRIP})
set(CPACK_PAM_SYMBOLS ${PAM_DEBIAN_SYMBOLS})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian-prepare.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian-no-ldconfig-scripts.cmake)
set(CPACK_SOURCE_IGNORE_FILES "/build/;/\\\\.git/")
include(CPack)
