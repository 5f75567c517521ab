// A host may leave its process at any point of an attempt. Each exit must
// end with status 0, and the next start of the host must find no record of a
// crash that never happened.
//
// KIV_RELIABILITY_RUNS=n exits at each point n times (default 3).
#include <gtest/gtest.h>

#include <cstdlib>

#include "sandbox/sandbox_server.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"

namespace kiv::testing {
namespace {

constexpr double kChildBound = 30.0;

int runsPerPoint() {
  const char* runs = std::getenv("KIV_RELIABILITY_RUNS");
  return runs ? std::max(1, std::atoi(runs)) : 3;
}

class HostExitSlowTest : public ::testing::TestWithParam<const char*> {};

TEST_P(HostExitSlowTest, ExitsCleanlyAndLeavesNoCrashRecord) {
  const std::string point = GetParam();
  auto sandbox = std::move(sandbox::SandboxServer::start({}).value());
  // The session is held back so that the exit comes while it is on its way.
  ASSERT_TRUE(sandbox->addFault(R"({"endpoint":"sessions","personId":"session-fetch","delayMs":1000})"));
  const auto token = sandbox->mintMobileToken("client-exit", std::string("eu.capture.example"));
  TemporaryDirectory data;
  const auto host = [&](const std::string& at) {
    return runToEnd(programPath("exiting_host"), {sandbox->rootURL(), token, data.path().string(), at}, kChildBound);
  };

  for (int run = runsPerPoint(); run > 0; --run) {
    const auto end = host(point);
    ASSERT_FALSE(end.hung);
    ASSERT_EQ(end.exitSignal, 0) << end.errors;
    ASSERT_EQ(end.exitCode, 0) << end.errors;
  }
  const auto next = host("finish");
  ASSERT_EQ(next.exitCode, 0) << next.errors;
  EXPECT_TRUE(sandbox->requests({.path = "bff/crashlytics"}).empty());
}

INSTANTIATE_TEST_SUITE_P(Points, HostExitSlowTest,
                         ::testing::Values("before-setup", "session-fetch", "mid-capture", "loading", "loaded",
                                           "success", "failure", "error", "cancelled", "last-loaded",
                                           "after-outcome"),
                         [](const auto& p) {
                           std::string name;
                           for (const char* c = p.param; *c; ++c) {
                             if (*c != '-') name += *c;
                           }
                           return name;
                         });

}  // namespace
}  // namespace kiv::testing
