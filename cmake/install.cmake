# Installation and Debian packaging (included at the end of the top-level
# CMakeLists.txt, after every target exists).
#
#   cmake --install <build> [--prefix <dir>]   installs:
#     lib/libpalvonauthmanager.so.1.0.0 (+ .so.1 and .so links)
#     include/palvonauthmanager/PalvonAuthManager.h, PalvonAuthManagerTracer.h
#     bin/palvonauth, bin/palvonauthd (when the service is built)
#     lib/pkgconfig/palvonauthmanager.pc
#     lib/cmake/PalvonAuthManager/ (find_package(PalvonAuthManager) ->
#                                   PalvonAuthManager::palvonauthmanager)
#     lib/systemd/user/palvonauthd.service (when the service is built)
#     share/man/man1/palvonauth.1, share/man/man8/palvonauthd.8
#   cpack -G DEB (in the build folder) builds palvonauthmanager_<version>_<arch>.deb.
include(CMakePackageConfigHelpers)

set(PAM_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/PalvonAuthManager)
set(PAM_INSTALL_HEADERDIR ${CMAKE_INSTALL_INCLUDEDIR}/palvonauthmanager)

# The library. Only the shared library is exported: its objects come from
# pam_objects, whose Boost and thread dependencies stay private to it.
install(TARGETS palvonauthmanager
  EXPORT PalvonAuthManagerTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${PAM_INSTALL_HEADERDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/sdk/api/include/PalvonAuthManager.h
  ${PROJECT_SOURCE_DIR}/sdk/api/include/PalvonAuthManagerTracer.h
  DESTINATION ${PAM_INSTALL_HEADERDIR})

# CMake package: relocatable, so an installation can be moved or unpacked
# under any prefix.
install(EXPORT PalvonAuthManagerTargets
  NAMESPACE PalvonAuthManager::
  FILE PalvonAuthManagerTargets.cmake
  DESTINATION ${PAM_INSTALL_CMAKEDIR})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/PalvonAuthManagerConfig.cmake.in
  ${PROJECT_BINARY_DIR}/PalvonAuthManagerConfig.cmake
  INSTALL_DESTINATION ${PAM_INSTALL_CMAKEDIR}
  PATH_VARS PAM_INSTALL_HEADERDIR)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/PalvonAuthManagerConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/PalvonAuthManagerConfig.cmake
  ${PROJECT_BINARY_DIR}/PalvonAuthManagerConfigVersion.cmake
  DESTINATION ${PAM_INSTALL_CMAKEDIR})

# pkg-config: the prefix is found from the .pc file's own location, so the
# file stays right whatever prefix `cmake --install --prefix` chooses.
file(RELATIVE_PATH PAM_PC_PREFIX_FROM_PCDIR
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" PAM_PC_PREFIX_FROM_PCDIR "${PAM_PC_PREFIX_FROM_PCDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/palvonauthmanager.pc.in
  ${PROJECT_BINARY_DIR}/palvonauthmanager.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/palvonauthmanager.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The tool and its manual page.
if(TARGET palvonauth)
  install(TARGETS palvonauth RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/palvonauth.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

# The reference service, its systemd user unit and its manual page.
# service/daemon.cmake installs the binary and a unit configured for the
# configure-time prefix itself; only a service target without such rules is
# installed from here.
if(TARGET palvonauthd)
  set(PAM_UNIT_INSTALL_DIR lib/systemd/user)
  if(NOT EXISTS ${PROJECT_BINARY_DIR}/service/palvonauthd.service)
    install(TARGETS palvonauthd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    if(EXISTS ${PROJECT_SOURCE_DIR}/service/palvonauthd.service)
      install(FILES ${PROJECT_SOURCE_DIR}/service/palvonauthd.service DESTINATION ${PAM_UNIT_INSTALL_DIR})
    endif()
  endif()
  # The unit must start the binary of this installation, also when the
  # prefix is chosen at install time (cmake --install --prefix, or CPack's
  # /usr): point ExecStart at it once the unit is in place.
  install(CODE "set(PAM_UNIT_DIRS \"${PAM_UNIT_INSTALL_DIR};${CMAKE_INSTALL_LIBDIR}/systemd/user\")
set(PAM_UNIT_BINDIR \"${CMAKE_INSTALL_BINDIR}\")")
  install(CODE [[
    foreach(dir IN LISTS PAM_UNIT_DIRS)
      set(unit "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${dir}/palvonauthd.service")
      if(EXISTS "${unit}")
        file(READ "${unit}" text)
        string(REGEX REPLACE "ExecStart=[^\n]*palvonauthd"
               "ExecStart=${CMAKE_INSTALL_PREFIX}/${PAM_UNIT_BINDIR}/palvonauthd" text "${text}")
        file(WRITE "${unit}" "${text}")
      endif()
    endforeach()
  ]])
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/palvonauthd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
endif()

# Debian package of everything above.
set(CPACK_PACKAGE_NAME palvonauthmanager)
set(CPACK_PACKAGE_VENDOR "Palvon")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Client library and tools of the per-user Palvon authentication-manager service")
set(CPACK_PACKAGE_DESCRIPTION
  "libpalvonauthmanager forwards every call as a typed key/value message over named pipes to the\n"
  "authentication-manager service of the same user. The package holds the shared library, its\n"
  "headers, pkg-config and CMake package files, the palvonauth command-line tool and the\n"
  "palvonauthd reference service with its systemd user unit.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "Palvon SDK developers <dev@palvon.example>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Palvon SDK developers <dev@palvon.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies (libc, libstdc++, libcurl for the service) come from the
# binaries themselves; the package's own library is found in the staging tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_IGNORE_FILES "/build/;/\\\\.git/")
include(CPack)
