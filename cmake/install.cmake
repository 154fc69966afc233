# Installation (included at the end of the top-level CMakeLists.txt, after
# every target exists). Every rule belongs to one of three components, which
# cmake/debian.cmake turns into one Debian package each:
#
#   cmake --install <build> [--prefix <dir>] [--component <name>]
#     runtime      LIBDIR/libpalvonauthmanager.so.1.0.0 and its SONAME link .so.1
#     development  LIBDIR/libpalvonauthmanager.so (the link the linker uses)
#                  include/palvonauthmanager/PalvonAuthManager.h, PalvonAuthManagerTracer.h
#                  LIBDIR/pkgconfig/palvonauthmanager.pc
#                  LIBDIR/cmake/PalvonAuthManager/ (find_package(PalvonAuthManager) ->
#                                                   PalvonAuthManager::palvonauthmanager)
#                  share/doc/libpalvonauthmanager-dev/html/ (with PAM_INSTALL_API_REFERENCE,
#                                                   see docs/CMakeLists.txt)
#     tools        bin/palvonauth, bin/palvonauthd (when the service is built)
#                  lib/systemd/user/palvonauthd.service (when the service is built)
#                  share/man/man1/palvonauth.1.gz, share/man/man8/palvonauthd.8.gz
#
# cmake/debian.cmake adds to each component what only its package carries
# (share/doc/<package>/copyright and changelog.Debian.gz, lintian overrides,
# the doc-base entry), installed by `--component` installs alone.
#
# LIBDIR is `lib`, or `lib/<multiarch triplet>` on Debian when the prefix is
# /usr (GNUInstallDirs). The systemd user unit stays in lib/systemd/user for
# every prefix: systemd looks there, never in a multiarch folder.
include(CMakePackageConfigHelpers)

# Everything the rules below copy: `cmake --build <dir> --target
# pam_installed_files` builds just that.
add_custom_target(pam_installed_files)
add_dependencies(pam_installed_files palvonauthmanager)
if(PAM_INSTALL_API_REFERENCE)
  add_dependencies(pam_installed_files docs)
endif()

set(PAM_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/PalvonAuthManager)
set(PAM_INSTALL_HEADERDIR ${CMAKE_INSTALL_INCLUDEDIR}/palvonauthmanager)

# The library. Only the shared library is exported: its objects come from
# pam_objects, whose Boost and thread dependencies stay private to it.
install(TARGETS palvonauthmanager
  EXPORT PalvonAuthManagerTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${PAM_INSTALL_HEADERDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/sdk/api/include/PalvonAuthManager.h
  ${PROJECT_SOURCE_DIR}/sdk/api/include/PalvonAuthManagerTracer.h
  DESTINATION ${PAM_INSTALL_HEADERDIR} COMPONENT development)

# CMake package: relocatable, so an installation can be moved or unpacked
# under any prefix.
install(EXPORT PalvonAuthManagerTargets
  NAMESPACE PalvonAuthManager::
  FILE PalvonAuthManagerTargets.cmake
  DESTINATION ${PAM_INSTALL_CMAKEDIR} COMPONENT development)
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
  DESTINATION ${PAM_INSTALL_CMAKEDIR} COMPONENT development)

# pkg-config: the prefix is found from the .pc file's own location, so the
# file stays right whatever prefix `cmake --install --prefix` chooses.
file(RELATIVE_PATH PAM_PC_PREFIX_FROM_PCDIR
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" PAM_PC_PREFIX_FROM_PCDIR "${PAM_PC_PREFIX_FROM_PCDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/palvonauthmanager.pc.in
  ${PROJECT_BINARY_DIR}/palvonauthmanager.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/palvonauthmanager.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# Manual pages are installed compressed (gzip -9n: no name, no time stamp,
# so the same page gives the same bytes).
find_program(PAM_GZIP gzip REQUIRED)
function(pam_install_man_page page section)
  set(compressed ${PROJECT_BINARY_DIR}/man/${page}.gz)
  add_custom_command(OUTPUT ${compressed}
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/docs/man/${page} ${PROJECT_BINARY_DIR}/man/${page}
    COMMAND ${PAM_GZIP} -9nf ${PROJECT_BINARY_DIR}/man/${page}
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/${page} VERBATIM)
  add_custom_target(pam_man_${page} ALL DEPENDS ${compressed})
  add_dependencies(pam_installed_files pam_man_${page})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT tools)
endfunction()

# The tool and its manual page.
if(TARGET palvonauth)
  install(TARGETS palvonauth RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  add_dependencies(pam_installed_files palvonauth)
  pam_install_man_page(palvonauth.1 1)
endif()

# The reference service, its systemd user unit and its manual page.
# service/daemon.cmake installs the binary and a unit configured for the
# configure-time prefix itself; only a service target without such rules is
# installed from here.
if(TARGET palvonauthd)
  add_dependencies(pam_installed_files palvonauthd)
  set(PAM_UNIT_INSTALL_DIR lib/systemd/user)
  if(NOT EXISTS ${PROJECT_BINARY_DIR}/service/palvonauthd.service)
    install(TARGETS palvonauthd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    if(EXISTS ${PROJECT_SOURCE_DIR}/service/palvonauthd.service)
      install(FILES ${PROJECT_SOURCE_DIR}/service/palvonauthd.service DESTINATION ${PAM_UNIT_INSTALL_DIR}
        COMPONENT tools)
    endif()
  endif()
  # The unit must start the binary of this installation, also when the
  # prefix is chosen at install time (cmake --install --prefix, or CPack's
  # /usr): point ExecStart at it once the unit is in place.
  install(CODE "set(PAM_UNIT \"${PAM_UNIT_INSTALL_DIR}/palvonauthd.service\")
set(PAM_UNIT_BINDIR \"${CMAKE_INSTALL_BINDIR}\")" COMPONENT tools)
  install(CODE [[
    set(unit "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${PAM_UNIT}")
    if(EXISTS "${unit}")
      file(READ "${unit}" text)
      string(REGEX REPLACE "ExecStart=[^\n]*palvonauthd"
             "ExecStart=${CMAKE_INSTALL_PREFIX}/${PAM_UNIT_BINDIR}/palvonauthd" text "${text}")
      file(WRITE "${unit}" "${text}")
    endif()
  ]] COMPONENT tools)
  pam_install_man_page(palvonauthd.8 8)
endif()

include(cmake/debian.cmake)
