# SPDX-License-Identifier: MIT
# What an installation holds: the headers, the libraries with their versions and links, the archive, the command and
# a link to it, a pkg-config file, a CMake package and the man pages. The prefix may be moved afterwards: nothing holds its name.
include(CMakePackageConfigHelpers)

# <ovra/...> is the interface of libovra. <hwplat/...> are the interfaces of the platform libraries: whoever puts a
# library of their own in the place of one builds it against them.
set(platform_libraries devns hwtree volset kvlist)
install(TARGETS ovra EXPORT ovra
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ${platform_libraries} EXPORT ovra
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hwplat)
# The archive is one object of which only the interface can be linked: a function of the program's that has the name of
# one inside would be called in its place. Not in the CMake package: what links it chooses its platform libraries itself.
set(archive ${PROJECT_BINARY_DIR}/archive)
file(READ ${PROJECT_SOURCE_DIR}/src/ovra.map interface)
string(REPLACE ";" "!" interface "${interface}")
string(REGEX MATCHALL "[a-z][a-z_0-9]*!" interface "${interface}")
list(JOIN interface "\n" interface)
string(REPLACE "!" "" interface "${interface}")
file(CONFIGURE OUTPUT ${archive}/interface CONTENT "@interface@\n" @ONLY)
add_custom_command(OUTPUT ${archive}/libovra.a
  COMMAND ${CMAKE_LINKER} -r -o ${archive}/ovra.o --whole-archive $<TARGET_FILE:ovra_static>
  COMMAND ${CMAKE_OBJCOPY} --keep-global-symbols=${archive}/interface ${archive}/ovra.o
  COMMAND ${CMAKE_COMMAND} -E rm -f ${archive}/libovra.a
  COMMAND ${CMAKE_AR} qcsD ${archive}/libovra.a ${archive}/ovra.o
  DEPENDS ovra_static VERBATIM)
add_custom_target(ovra_installed_archive ALL DEPENDS ${archive}/libovra.a)
install(FILES ${archive}/libovra.a DESTINATION ${CMAKE_INSTALL_LIBDIR})

install(TARGETS ovra_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Called by this name the command is what scripts know as that. No shell looks there: whoever wants it makes it an
# alternative.
file(RELATIVE_PATH link_to_bin ${CMAKE_INSTALL_FULL_LIBEXECDIR}/ovra ${CMAKE_INSTALL_FULL_BINDIR})
file(CREATE_LINK ${link_to_bin}/ovra ${PROJECT_BINARY_DIR}/efibootmgr SYMBOLIC)
install(FILES ${PROJECT_BINARY_DIR}/efibootmgr DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/ovra COMPONENT efibootmgr)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ovra)
configure_package_config_file(cmake/ovraConfig.cmake.in ${PROJECT_BINARY_DIR}/ovraConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ovraConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ovraConfig.cmake ${PROJECT_BINARY_DIR}/ovraConfigVersion.cmake
  DESTINATION ${package_dir})
install(EXPORT ovra FILE ovraTargets.cmake NAMESPACE ovra:: DESTINATION ${package_dir})

# The prefix as seen from the pkg-config file itself, the folders as seen from the prefix.
file(RELATIVE_PATH pkgconfig_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkgconfig_to_prefix ${pkgconfig_to_prefix})
foreach(folder LIBDIR INCLUDEDIR)
  file(RELATIVE_PATH prefix_to_${folder} ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_${folder}})
endforeach()
list(TRANSFORM platform_libraries PREPEND "-l" OUTPUT_VARIABLE pkgconfig_private)
list(JOIN pkgconfig_private " " pkgconfig_private)
configure_file(cmake/ovra.pc.in ovra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ovra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

file(GLOB man_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
foreach(page IN LISTS man_pages)
  string(REGEX MATCH "[1-8]$" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

file(GLOB schemas CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/json/*.json)
install(FILES ${schemas} DESTINATION ${CMAKE_INSTALL_DATADIR}/ovra/json)
install(FILES tools/completion/ovra.bash RENAME ovra
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES tools/completion/_ovra DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES tools/completion/ovra.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
