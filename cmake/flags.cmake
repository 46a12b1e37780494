# SPDX-License-Identifier: MIT
# Every compiler and linker flag of the project, with its reason.

add_library(ovra_flags INTERFACE)
target_compile_features(ovra_flags INTERFACE cxx_std_20 c_std_11)
set_target_properties(ovra_flags PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)
target_include_directories(ovra_flags INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(ovra_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${OVRA_WERROR}>:-Werror>
  # GCC 12 sees overlaps inside std::string's own operator+ (its bug 105651).
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)

# The core runs inside any program, C ones included: no exceptions, no RTTI, no guards for static locals, so
# that libovra needs no C++ run-time library.
add_library(ovra_core_flags INTERFACE)
target_link_libraries(ovra_core_flags INTERFACE ovra_flags)
target_compile_options(ovra_core_flags INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  # Symbols that are unique in a process cannot be kept inside an archive.
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)

if(OVRA_SANITIZE)
  # Recovery off: a finding ends the test that made it.
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # A list of arguments is allocated for as many as it has, and declared for the most: Clang's check of the sizes of
  # objects, which GCC does not make without optimisation, takes that for an error.
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    list(APPEND sanitizers -fno-sanitize=object-size)
  endif()
  target_compile_options(ovra_flags INTERFACE ${sanitizers})
  target_compile_options(ovra_core_flags INTERFACE -O1) # the tests of the core run twice as fast
  target_compile_definitions(ovra_flags INTERFACE OVRA_SANITIZED) # for tests that measure time
  target_link_options(ovra_flags INTERFACE ${sanitizers})
endif()

# For sources with precompiled headers: with this a compiler's cache can tell which one a source has used.
add_library(ovra_precompiled INTERFACE)
target_compile_options(ovra_precompiled INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)

# ovra_precompile(<target> HEADERS <headers>... | REUSE_FROM <target>): what its sources spend most of their time on is compiled once in the build with
# sanitizers, which compiles for the tests. A source that forgets to include something does not compile in other builds.
function(ovra_precompile target from)
  if(OVRA_SANITIZE)
    target_link_libraries(${target} PRIVATE ovra_precompiled)
    if(from STREQUAL HEADERS)
      set(from PRIVATE)
    endif()
    target_precompile_headers(${target} ${from} ${ARGN})
  endif()
endfunction()
