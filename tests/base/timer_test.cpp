#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

#include "base/seconds_text.hpp"
#include "base/timer.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class TimerTest : public testing::PlatformTest {};

TEST_F(TimerTest, MeasuresFromTheLatestStartAndForgetsAfterReading) {
  auto& timer = KivSDKTimer::shared();
  EXPECT_EQ(timer.elapsed("never"), std::nullopt);

  timer.start("GET /sessions");
  clock().advance(5.0);
  timer.start("GET /sessions");
  clock().advance(0.25);
  EXPECT_EQ(timer.elapsed("GET /sessions"), "0.25");
  EXPECT_EQ(timer.elapsed("GET /sessions"), std::nullopt);

  timer.start("a");
  clock().advance(1.0);
  EXPECT_EQ(timer.elapsed("b"), std::nullopt);  // a miss changes nothing
  EXPECT_EQ(timer.elapsed("a"), "1.0");

  timer.start("back");
  clock().advance(-2.0);  // the wall clock went back
  EXPECT_EQ(timer.elapsed("back"), "-2.0");
}

TEST_F(TimerTest, IsSafeFromManyThreads) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) {
        const auto name = std::to_string(t) + "/" + std::to_string(i);
        KivSDKTimer::shared().start(name);
        EXPECT_EQ(KivSDKTimer::shared().elapsed(name), "0.0");
      }
    });
  }
}

// Python's repr() of doubles: the shortest text that parses back, ".0" on
// whole numbers, exponents below 1e-4 and from 1e16 on.
TEST(SecondsText, MatchesPythonRepr) {
  std::istringstream texts(
      "1.0 0.25 1e-05 0.0001 1e+16 9999999999999998.0 0.30000000000000004 -0.0 5e-324 1.7976931348623157e+308");
  for (std::string text; texts >> text;) EXPECT_EQ(shortestDoubleText(std::strtod(text.c_str(), nullptr)), text);
}

}  // namespace
}  // namespace kiv
