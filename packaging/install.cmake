# Installation layout and the Debian package (cpack -G DEB).
#
#   /usr/bin/qv_hivectl, and the profile names qv_hivectl_{fa,cn,nc} as links
#   /usr/bin/qv-hivectl-schema                 schema install, verify, check, grant
#   /usr/bin/qv-hivectl-backup                 verified export, check, restore
#   /usr/share/qv-hivectl/sql/registry.sql     server side; loading it again upgrades
#   /usr/share/man/man8/qv_hivectl.8.gz        and links for the profile names;
#                    qv-hivectl-schema.8.gz, qv-hivectl-backup.8.gz
#   /usr/share/bash-completion/completions/    one file, linked under every program name
#   /usr/share/zsh/vendor-completions/_qv_hivectl
#   /usr/share/doc/qv-hivectl/                 README.md, copyright, changelog.gz,
#                                              examples/qv_node.cfg
include(GNUInstallDirs)

set(HIVECTL_PROFILE_NAMES qv_hivectl_fa qv_hivectl_cn qv_hivectl_nc)
set(HIVECTL_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/qv-hivectl)
set(HIVECTL_PKG_DIR ${CMAKE_CURRENT_LIST_DIR})

# Manual page and changelog go in compressed, without time stamps, as Debian
# wants them.
set(HIVECTL_GZIPPED)
foreach(source qv_hivectl.8 qv-hivectl-schema.8 qv-hivectl-backup.8 changelog)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${source}.gz
    COMMAND gzip -9nc ${HIVECTL_PKG_DIR}/${source} > ${CMAKE_BINARY_DIR}/${source}.gz
    DEPENDS ${HIVECTL_PKG_DIR}/${source} VERBATIM)
  list(APPEND HIVECTL_GZIPPED ${CMAKE_BINARY_DIR}/${source}.gz)
endforeach()
add_custom_target(hivectl_docs ALL DEPENDS ${HIVECTL_GZIPPED})

install(TARGETS qv_hivectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS ${HIVECTL_PKG_DIR}/qv-hivectl-schema ${HIVECTL_PKG_DIR}/qv-hivectl-backup
  DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_SOURCE_DIR}/sql/registry.sql
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/qv-hivectl/sql)
install(FILES ${CMAKE_BINARY_DIR}/qv_hivectl.8.gz ${CMAKE_BINARY_DIR}/qv-hivectl-schema.8.gz
  ${CMAKE_BINARY_DIR}/qv-hivectl-backup.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${HIVECTL_PKG_DIR}/qv_hivectl.bash
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions RENAME qv_hivectl)
install(FILES ${HIVECTL_PKG_DIR}/qv_hivectl.zsh
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions RENAME _qv_hivectl)
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${HIVECTL_PKG_DIR}/copyright
  ${CMAKE_BINARY_DIR}/changelog.gz DESTINATION ${HIVECTL_DOC_DIR})
install(FILES ${HIVECTL_PKG_DIR}/qv_node.cfg DESTINATION ${HIVECTL_DOC_DIR}/examples)

# Relative links, made at install time so they land under DESTDIR too.
# bash-completion looks a completion up by the program's name.
set(HIVECTL_LINKS)
foreach(name ${HIVECTL_PROFILE_NAMES})
  list(APPEND HIVECTL_LINKS
    "${CMAKE_INSTALL_BINDIR}|qv_hivectl|${name}"
    "${CMAKE_INSTALL_MANDIR}/man8|qv_hivectl.8.gz|${name}.8.gz")
endforeach()
foreach(name ${HIVECTL_PROFILE_NAMES} qv-hivectl-schema qv-hivectl-backup)
  list(APPEND HIVECTL_LINKS "${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions|qv_hivectl|${name}")
endforeach()
foreach(link_spec ${HIVECTL_LINKS})
  string(REPLACE "|" ";" link_spec "${link_spec}")
  list(GET link_spec 0 link_dir)
  list(GET link_spec 1 link_target)
  list(GET link_spec 2 link_name)
  install(CODE "
    set(dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${link_dir}\")
    file(CREATE_LINK ${link_target} \"\${dir}/${link_name}\" SYMBOLIC)
    message(STATUS \"Installing: \${dir}/${link_name} -> ${link_target}\")")
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qv-hivectl)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "qv_hivectl maintainers <maintainers@qv-hivectl.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "administration tool of the conferencing server's registry")
set(CPACK_PACKAGE_DESCRIPTION
  "qv_hivectl reads and changes the configuration registry of the conferencing\n\
server: a tree of keys holding typed values, kept in PostgreSQL behind the\n\
functions of schema registry, or in the tool's own memory for local use.\n\
Commands get, set, remove, rename and copy values and keys, show a key,\n\
and export or import whole subtrees as CSV. The package also ships the\n\
server-side schema and the qv-hivectl-schema script that installs,\n\
upgrades, verifies and grants it, and qv-hivectl-backup, which exports\n\
and restores a subtree with a check of the file against the server.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The two scripts run psql.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "postgresql-client")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
