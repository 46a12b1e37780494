# SPDX-License-Identifier: MIT
# The C++ run-time library. A program that loads it spends most of its start on it: 4,300 symbols are bound, which a
# program in C that reads one variable never uses. What is used of it is therefore linked into each platform library and
# into the command, hidden; no exception and no object of it crosses their borders. It is the compiler's own part of its
# output, and is updated by a new build, as headers are.
option(OVRA_STATIC_RUNTIME "link the C++ run-time library into the platform libraries and the command" ON)

add_library(ovra_runtime INTERFACE)
if(OVRA_SANITIZE)
  return()
endif()
target_link_options(ovra_runtime INTERFACE -Wl,--gc-sections)
if(NOT OVRA_STATIC_RUNTIME)
  return()
endif()
include(CheckCXXSourceCompiles)

# Some systems have the shared one alone.
set(static_runtime -static-libstdc++ -static-libgcc)
set(CMAKE_REQUIRED_FLAGS -fPIC)
set(CMAKE_REQUIRED_LINK_OPTIONS -shared ${static_runtime})
check_cxx_source_compiles("
  #include <stdexcept>
  #include <string>
  int outcome(const char *text)
  {
      try {
          throw std::runtime_error(std::string(text) + text);
      } catch (const std::exception &) {
          return 1;
      }
  }" OVRA_HAS_STATIC_RUNTIME)
unset(CMAKE_REQUIRED_FLAGS)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
if(OVRA_HAS_STATIC_RUNTIME)
  target_link_options(ovra_runtime INTERFACE ${static_runtime} -Wl,--exclude-libs,ALL)
endif()
