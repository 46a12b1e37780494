# SPDX-License-Identifier: MIT
# What an installation holds: the headers, the libraries with their versions and links, the archive, the command, a
# pkg-config file, a CMake package and the man pages. The prefix may be moved afterwards: nothing holds its name.
include(CMakePackageConfigHelpers)

set(ovra_platform_libraries devns hwtree volset kvlist)
foreach(library IN LISTS ovra_platform_libraries)
  if(NOT TARGET ${library})
    list(REMOVE_ITEM ovra_platform_libraries ${library})
  endif()
endforeach()

# <ovra/...> is the interface of libovra. <hwplat/...> are the interfaces of the platform libraries: whoever puts a
# library of their own in the place of one builds it against them.
install(FILES include/ovra/log.h include/ovra/ovra.h include/ovra/uefi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ovra)
file(GLOB platform_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/platform/include/*.h)
install(FILES ${platform_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hwplat)

# A program that links libovra alone finds the platform libraries beside it. As a run path (not the older rpath) this
# comes after LD_LIBRARY_PATH, so that others can be put in their place. The build's lib/ is the same in this.
set_target_properties(ovra ${ovra_platform_libraries} PROPERTIES
  INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
foreach(library ovra ${ovra_platform_libraries})
  target_link_options(${library} PRIVATE -Wl,--enable-new-dtags)
endforeach()
foreach(library IN LISTS ovra_platform_libraries)
  set_target_properties(${library} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  # Folders of the sources are for the build alone.
  get_target_property(folders ${library} INTERFACE_INCLUDE_DIRECTORIES)
  if(folders)
    set_target_properties(${library} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "$<BUILD_INTERFACE:${folders}>")
  endif()
endforeach()
install(TARGETS ovra ${ovra_platform_libraries} EXPORT ovra
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Not in the CMake package: what links the archive chooses its platform libraries itself.
install(TARGETS ovra_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(ovra_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
install(TARGETS ovra_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

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
list(TRANSFORM ovra_platform_libraries PREPEND "-l" OUTPUT_VARIABLE pkgconfig_private)
list(JOIN pkgconfig_private " " pkgconfig_private)
configure_file(cmake/ovra.pc.in ovra.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ovra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

file(GLOB man_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
foreach(page IN LISTS man_pages)
  string(REGEX MATCH "[1-8]$" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
