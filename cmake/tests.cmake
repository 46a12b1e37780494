# SPDX-License-Identifier: MIT
# Whether the tests are built: as OVRA_TESTS says; with AUTO unless CMake's own BUILD_TESTING is off or something that
# they need is missing.
set(build_tests ${OVRA_TESTS})
if(OVRA_TESTS STREQUAL AUTO AND DEFINED BUILD_TESTING AND NOT BUILD_TESTING)
  set(build_tests OFF)
endif()
if(NOT build_tests)
  return()
endif()

find_package(GTest QUIET)
find_package(Python3 3.10 QUIET COMPONENTS Interpreter)
set(missing)
if(NOT TARGET GTest::gmock OR NOT TARGET GTest::gtest_main)
  list(APPEND missing "GoogleTest with GoogleMock")
endif()
if(NOT Python3_Interpreter_FOUND)
  list(APPEND missing "Python 3.10")
endif()
find_program(OVRA_SFDISK sfdisk PATHS /sbin /usr/sbin) # makes partition tables
if(NOT OVRA_SFDISK)
  list(APPEND missing "sfdisk")
endif()
set(build_tests ON)
if(missing)
  list(JOIN missing " and " missing)
  if(NOT OVRA_TESTS STREQUAL AUTO)
    message(FATAL_ERROR "The tests need ${missing}. On Debian, scripts/install-packages check installs what they need; "
      "-DOVRA_TESTS=OFF builds without them.")
  endif()
  message(STATUS "Tests are not built: ${missing} not found (on Debian: scripts/install-packages check)")
  set(build_tests OFF)
endif()
