# Precompiled headers for the heavy third-party headers that nearly every
# translation unit reads: nlohmann/json (through platform/json/json.hpp) in
# the library, plus GoogleTest in the tests. Parsing them was more than half
# of a typical file's compile time. ccache caches PCH builds only with
# CCACHE_SLOPPINESS=pch_defines,time_macros (scripts/test sets it).
option(KIV_PRECOMPILE_HEADERS "Precompile the third-party headers most files include" ON)

set(KIV_PCH_COMMON_HEADERS
  <nlohmann/json.hpp> <string> <string_view> <vector> <map> <memory> <functional> <optional> <expected>
  <mutex> <chrono>)

# The library's own PCH.
function(kiv_precompile_library target)
  if(KIV_PRECOMPILE_HEADERS)
    target_precompile_headers(${target} PRIVATE ${KIV_PCH_COMMON_HEADERS})
  endif()
endfunction()

# One PCH for every test executable: the first one given builds it and the
# others reuse it, so it is compiled once per build tree. All of them must be
# compiled with the same flags (they are: kiv_set_warnings, the same links).
function(kiv_precompile_tests)
  if(NOT KIV_PRECOMPILE_HEADERS OR ARGC EQUAL 0)
    return()
  endif()
  list(POP_FRONT ARGV owner)
  target_precompile_headers(${owner} PRIVATE <gtest/gtest.h> ${KIV_PCH_COMMON_HEADERS})
  foreach(target IN LISTS ARGV)
    target_precompile_headers(${target} REUSE_FROM ${owner})
  endforeach()
endfunction()
