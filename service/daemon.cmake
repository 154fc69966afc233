# The reference service palvonauthd (included from service/CMakeLists.txt
# when PAM_BUILD_SERVICE is ON).
find_package(CURL REQUIRED)
find_package(tomlplusplus REQUIRED CONFIG)
find_package(CLI11 REQUIRED CONFIG)
# sd_notify() for Type=notify; only the executable talks to systemd.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBSYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

# Everything but main(), so that tests can reach the pieces directly.
add_library(palvonauthd_core STATIC ${PALVONAUTHD_CORE_SOURCES})
target_include_directories(palvonauthd_core PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(palvonauthd_core
  PUBLIC pam_service_common Threads::Threads
  PRIVATE CURL::libcurl tomlplusplus::tomlplusplus)
pam_set_warnings(palvonauthd_core)

add_executable(palvonauthd ${CMAKE_CURRENT_LIST_DIR}/daemon/main.cpp)
target_link_libraries(palvonauthd PRIVATE palvonauthd_core CLI11::CLI11 PkgConfig::LIBSYSTEMD)
pam_set_warnings(palvonauthd)

# The systemd user unit names the installed binary.
file(READ ${CMAKE_CURRENT_LIST_DIR}/palvonauthd.service PAM_UNIT_TEXT)
string(REPLACE "/usr/local/bin/palvonauthd" "${CMAKE_INSTALL_FULL_BINDIR}/palvonauthd" PAM_UNIT_TEXT "${PAM_UNIT_TEXT}")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/palvonauthd.service "${PAM_UNIT_TEXT}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/palvonauthd.service)
install(TARGETS palvonauthd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/palvonauthd.service DESTINATION lib/systemd/user COMPONENT tools)
