# SPDX-License-Identifier: MIT
# The kinds of targets that are installed. Libraries are in lib/ of the build folder and the command is in bin/, as in an
# installation: they find each other in both by the same relative path.

# ovra_unity(<target> <number>): so many sources of it are compiled as one, all of them for 0, unless the build says
# otherwise. Most of the time to compile a source goes to the headers that it includes. (With GCC 12's optimisation a
# precompiled header takes longer than they do.)
function(ovra_unity target number)
  if(NOT DEFINED CMAKE_UNITY_BUILD)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${number})
  endif()
endfunction()

# ovra_archive(<name> <sources>...): a static library.
function(ovra_archive name)
  add_library(${name} STATIC ${ARGN})
  set_target_properties(${name} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
endfunction()

# ovra_shared_library(<name> <version script> <sources>...): exports what its version script says.
function(ovra_shared_library name script)
  add_library(${name} SHARED ${ARGN})
  add_library(ovra::${name} ALIAS ${name})
  target_link_libraries(${name} PRIVATE ovra_flags)
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    # A program that links libovra alone finds the platform libraries beside it.
    INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
  target_link_options(${name} PRIVATE
    -Wl,--version-script=${script}
    # The run path comes after LD_LIBRARY_PATH: others can be put in the place of these libraries.
    -Wl,--enable-new-dtags
    # dlclose leaves it loaded: descriptors, handlers of fork and what is kept for all threads are for the life of the
    # process.
    -Wl,-z,nodelete)
  if(NOT OVRA_SANITIZE)
    # A library with unresolved symbols is a defect here, not at the first call. The program resolves what sanitizers
    # need at run time.
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()

# ovra_headers(<library> <folder> <names>...): its public headers, below that folder.
function(ovra_headers library folder)
  list(TRANSFORM ARGN PREPEND ${folder}/ OUTPUT_VARIABLE headers)
  target_sources(${library} PUBLIC FILE_SET HEADERS BASE_DIRS ${folder} FILES ${headers})
endfunction()
