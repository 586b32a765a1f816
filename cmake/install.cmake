# What `cmake --install` and the Debian package put on a system. Everything has a name or a folder of its own there, so
# that it clashes with nothing: the programs are called moatwall-upgrade and moatwall-review.
include(GNUInstallDirs)

set(package moatwall-upgrade)
set(library_dir ${CMAKE_INSTALL_LIBDIR}/${package})
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(document_dir ${CMAKE_INSTALL_DATADIR}/doc/${package})
# A distribution keeps the completions of its packages apart from those of the machine's owner.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
else()
  set(zsh_dir ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endif()

# The folders that are not there yet, for `uninstall` to take back. All install rules stand behind this one.
install(CODE "
  set(folders \"${CMAKE_CURRENT_BINARY_DIR}/install_folders.txt\")
  foreach(directory IN ITEMS ${CMAKE_INSTALL_BINDIR} ${library_dir} ${pkgconfig_dir} ${zsh_dir} ${document_dir}/docs
      ${document_dir}/examples ${CMAKE_INSTALL_INCLUDEDIR}/${package} ${CMAKE_INSTALL_MANDIR}/man1
      ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    set(directory \"\${CMAKE_INSTALL_PREFIX}/\${directory}\")
    while(NOT IS_DIRECTORY \"\$ENV{DESTDIR}\${directory}\" AND NOT directory STREQUAL \"/\")
      file(APPEND \"\${folders}\" \"\${directory}\\n\")
      get_filename_component(directory \"\${directory}\" DIRECTORY)
    endwhile()
  endforeach()")

# The programs and the libraries. Static libraries are stripped by hand, since CMake leaves them alone.
install(PROGRAMS $<TARGET_FILE:upgrade> DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME ${package})
install(TARGETS token trans ARCHIVE DESTINATION ${library_dir})
set(installed_programs ${package})
if(UPGRADE_REVIEW)
  install(PROGRAMS $<TARGET_FILE:review> DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME moatwall-review)
  list(APPEND installed_programs moatwall-review)
endif()
install(CODE "
  if(CMAKE_INSTALL_DO_STRIP)
    set(root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
    foreach(program IN ITEMS ${installed_programs})
      execute_process(COMMAND ${CMAKE_STRIP} --remove-section=.comment --remove-section=.note
        \"\${root}/${CMAKE_INSTALL_BINDIR}/\${program}\" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    execute_process(COMMAND ${CMAKE_STRIP} --strip-debug --remove-section=.comment --remove-section=.note
      --enable-deterministic-archives \"\${root}/${library_dir}/libtoken.a\" \"\${root}/${library_dir}/libtrans.a\"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()")
install(FILES src/lib/token/nsym.h src/lib/token/nupgrade.h src/util/trans/upgrade.h src/util/trans/netperm.h
  src/util/trans/merging.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package})
file(RELATIVE_PATH pkgconfig_to_prefix /${pkgconfig_dir} /)
configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${pkgconfig_dir})

# The manual, the completions, the documents and the examples.
find_program(GZIP_PROGRAM gzip REQUIRED)
function(add_compressed source target directory)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target})
  add_custom_command(OUTPUT ${output} COMMAND ${GZIP_PROGRAM} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/${source} > ${output}
    DEPENDS ${source} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY compressed_files ${output})
  install(FILES ${output} DESTINATION ${directory})
endfunction()
add_compressed(docs/upgrade.1 ${package}.1.gz ${CMAKE_INSTALL_MANDIR}/man1)
if(UPGRADE_REVIEW)
  add_compressed(docs/review.1 moatwall-review.1.gz ${CMAKE_INSTALL_MANDIR}/man1)
endif()
add_compressed(cmake/debian/changelog changelog.gz ${document_dir})
get_property(compressed_files GLOBAL PROPERTY compressed_files)
add_custom_target(compressed ALL DEPENDS ${compressed_files})

foreach(program IN LISTS installed_programs)
  install(FILES completions/${program}.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${program})
  install(FILES completions/_${program} DESTINATION ${zsh_dir})
endforeach()
install(FILES cmake/debian/README.md cmake/debian/copyright DESTINATION ${document_dir})
install(FILES docs/architecture.md docs/file-formats.md docs/guide.md docs/reliability.md docs/review-page.png
  DESTINATION ${document_dir}/docs)
# Of the measurements a reader of the package wants what they came to, not the long table.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/performance.md)
file(READ docs/performance.md performance)
string(REGEX REPLACE "\n## The table\n.*" "" performance "${performance}")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/performance.md "${performance}\n")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/performance.md DESTINATION ${document_dir}/docs)
install(DIRECTORY examples DESTINATION ${document_dir})

configure_file(cmake/uninstall.cmake.in uninstall.cmake @ONLY)
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_BINARY_DIR}/uninstall.cmake)

# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${package})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "moatwall-upgrade maintainers <maintainers@moatwall-upgrade.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++, pkg-config")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "configuration upgrader for a proxy firewall")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Takes the configuration that an old release of the firewall left behind,
its netperm table included, and writes one file in the form that the new
release keeps. A report names the steps taken.
.
The companion moatwall-review tells what an upgrade does: who gets through
now, what became of every line, and what is left to do.
.
The passes are also installed as static libraries, with their headers.")
include(CPack)
