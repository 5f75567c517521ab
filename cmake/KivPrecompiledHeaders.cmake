# A precompiled GoogleTest header for the test executables.
#
# Measured before choosing (g++ 12, asan flags, same machine and load): with
# a PCH of nlohmann/json + GoogleTest + common std headers, a file that reads
# those headers compiles 10-15% faster and a file that does not compiles
# 25-60% slower, because the large (110-135 MB) PCH is loaded into every
# file of its target. In the library only 22 of 83 files read nlohmann/json
# and 2 read Asio, so a library PCH is a wash (and forcing <iomanip> on every
# file changes what unqualified calls find). Nearly every test file reads
# gtest/gtest.h, so the test executables share one PCH of it.
#
# A target that reuses another's PCH depends on that whole target, so the
# owner is an empty executable built like the tests (same flags, -fPIE; a
# library's -fPIC would not match): building one test executable does not
# build another.
#
# ccache caches the PCH and its users only with
# sloppiness=pch_defines,time_macros (scripts/test sets CCACHE_SLOPPINESS).
option(KIV_PRECOMPILE_HEADERS "Precompile GoogleTest for the test executables" ON)

function(kiv_precompile_tests)
  if(NOT KIV_PRECOMPILE_HEADERS OR ARGC EQUAL 0)
    return()
  endif()
  set(owner kivfll_test_pch)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/kivfll_test_pch.cpp "// Owns the tests' precompiled header.\n")
  add_executable(${owner} ${CMAKE_CURRENT_BINARY_DIR}/kivfll_test_pch.cpp)
  kiv_set_warnings(${owner})
  target_link_libraries(${owner} PRIVATE kivfll_test_support GTest::gtest_main)
  target_precompile_headers(${owner} PRIVATE <gtest/gtest.h>)
  foreach(target IN LISTS ARGV)
    target_precompile_headers(${target} REUSE_FROM ${owner})
  endforeach()
endfunction()
