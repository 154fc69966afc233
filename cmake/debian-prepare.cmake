# Run by cpack between staging the components and packing them
# (CPACK_PRE_BUILD_SCRIPTS); CPACK_TEMPORARY_DIRECTORY holds one staging
# folder per component.
if(NOT CPACK_PAM_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "The Debian packages need a build configured for the prefix /usr (cmake --preset deb), "
    "not ${CPACK_PAM_INSTALL_PREFIX}: the library's folder is chosen at configure time.")
endif()
if(NOT CPACK_PAM_CHANGELOG_UPSTREAM_VERSION STREQUAL CPACK_PACKAGE_VERSION)
  message(FATAL_ERROR "packaging/debian/changelog starts with version ${CPACK_PAM_CHANGELOG_UPSTREAM_VERSION}, "
    "the project is ${CPACK_PACKAGE_VERSION}: add a changelog entry first.")
endif()

# Binaries are stripped as Debian strips them: no symbol table or .comment,
# and of a shared library only what the dynamic linker needs.
file(GLOB_RECURSE staged LIST_DIRECTORIES false "${CPACK_TEMPORARY_DIRECTORY}/*")
foreach(file IN LISTS staged)
  if(IS_SYMLINK "${file}")
    continue()
  endif()
  file(READ "${file}" magic LIMIT 4 HEX)
  if(magic STREQUAL "7f454c46")
    set(how --strip-all)
    if(file MATCHES "\\.so(\\.[0-9]+)*$")
      set(how --strip-unneeded)
    endif()
    execute_process(COMMAND "${CPACK_PAM_STRIP}" ${how} --remove-section=.comment --remove-section=.note "${file}"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()

# The library's symbols file: every export with the first version that has
# it, which is this one (tests/api/data/exported_symbols.txt keeps the list
# of exports from changing unnoticed). dpkg-gensymbols would start from an
# existing output file.
file(REMOVE ${CPACK_PAM_SYMBOLS})
execute_process(COMMAND dpkg-gensymbols -q -p${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}
  -P${CPACK_TEMPORARY_DIRECTORY}/runtime -v${CPACK_PACKAGE_VERSION} -O${CPACK_PAM_SYMBOLS}
  COMMAND_ERROR_IS_FATAL ANY)
file(READ ${CPACK_PAM_SYMBOLS} symbols)
string(REPLACE "#MINVER#\n" "#MINVER#\n* Build-Depends-Package: ${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME}\n" symbols "${symbols}")
file(WRITE ${CPACK_PAM_SYMBOLS} "${symbols}")
