# SPDX-License-Identifier: MIT
# What compiler and linker do against mistakes that attackers use, in every build that has no sanitizers. The flags go
# before those of the user or of a distribution, which have the last word. They go into CMake's variables: no target
# property puts flags before those of the user.
option(OVRA_HARDENING "build with protection of stack and tables, checked calls and control-flow marks" ON)
if(NOT OVRA_HARDENING OR OVRA_SANITIZE)
  return()
endif()
include(CheckCompilerFlag)
include(CheckPIESupported)
include(CheckSourceCompiles)

check_pie_supported(LANGUAGES C CXX) # without it CMake compiles for -pie and leaves it to the compiler to link so

# Clang takes the flag of the other processor without a word until it compiles.
set(control_flow -fcf-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  set(control_flow -mbranch-protection=standard)
endif()
foreach(flag -fstack-protector-strong -fstack-clash-protection ${control_flow})
  string(MAKE_C_IDENTIFIER "OVRA_HAS${flag}" known)
  check_compiler_flag(CXX ${flag} ${known})
  if(${known})
    string(PREPEND CMAKE_CXX_FLAGS "${flag} ")
  endif()
endforeach()

# A level that comes with the compiler or from a distribution stays, and code without optimisation gets none. A header
# can see both, also when they are decided for one file alone; a definition on the command line cannot.
add_compile_options("SHELL:-include \"${CMAKE_CURRENT_LIST_DIR}/fortify.h\"")

foreach(kind EXE SHARED)
  string(PREPEND CMAKE_${kind}_LINKER_FLAGS "-Wl,-z,relro -Wl,-z,now ")
endforeach()

# The linker marks a file for shadow stacks and branch tracking when each of its objects is marked, the start files of
# the C library too. Debian's are not. They have nothing that shadow stacks forbid. With branch tracking _init and
# _fini must not be called, which a library does not need: its constructors are in a table. A program is entered through
# these files, and this mark is left to the linker.
if(OVRA_HAS_fcf_protection)
  set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,-z,shstk -Wl,-z,ibt)
  check_source_compiles(CXX "int main() { static_assert(__CET__ == 3, \"both\"); }" OVRA_MARKED FAIL_REGEX "warning")
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(OVRA_MARKED)
    string(PREPEND CMAKE_EXE_LINKER_FLAGS "-Wl,-z,shstk ")
    string(PREPEND CMAKE_SHARED_LINKER_FLAGS "-Wl,-z,shstk -Wl,-z,ibt -Wl,-init= -Wl,-fini= ")
  endif()
endif()
