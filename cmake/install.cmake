# What `cmake --install` puts on a system, and the Debian package with it. Everything has a name or a folder of its own
# there, so that it clashes with nothing: the programs are called moatwall-upgrade and moatwall-review.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package moatwall-upgrade)
set(library_dir ${CMAKE_INSTALL_LIBDIR}/${package})
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/${package})
set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(document_dir ${CMAKE_INSTALL_DATADIR}/doc/${package})

# The headers that a program on the libraries includes, with all that these include.
set(public_headers
  src/lib/token/nsym.h
  src/lib/token/frag_tools.h
  src/lib/token/name_index.h
  src/lib/token/text_hash.h
  src/lib/token/nupgrade.h
  src/util/trans/merging.h
  src/util/trans/netperm.h
  src/util/trans/upgrade.h)
install(FILES ${public_headers} DESTINATION ${header_dir})

# The libraries, for find_package and for pkg-config. They need nothing but the C++ library, so that the list of targets
# is the whole package file.
install(TARGETS token trans EXPORT ${package} ARCHIVE DESTINATION ${library_dir} INCLUDES DESTINATION ${header_dir})
install(EXPORT ${package} FILE ${package}-config.cmake NAMESPACE ${package}:: DESTINATION ${cmake_dir})
write_basic_package_version_file(${package}-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}-config-version.cmake DESTINATION ${cmake_dir})
file(RELATIVE_PATH pkgconfig_to_prefix /${pkgconfig_dir} /)
configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${pkgconfig_dir})

# The programs, each with its manual page and its completions.
foreach(program IN ITEMS upgrade review)
  if(TARGET ${program})
    set(name moatwall-${program})
    install(PROGRAMS $<TARGET_FILE:${program}> DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME ${name})
    install(FILES docs/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 RENAME ${name}.1)
    install(FILES completions/${name}.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${name})
    install(FILES completions/_${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  endif()
endforeach()

install(DIRECTORY docs DESTINATION ${document_dir} FILES_MATCHING PATTERN *.md PATTERN *.json PATTERN *.png)
install(DIRECTORY examples DESTINATION ${document_dir})
