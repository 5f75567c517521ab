#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

#include "sdk/seconds_text.hpp"
#include "sdk/state_manager.hpp"
#include "sdk/timer.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class RunGuardTest : public testing::PlatformTest {};

TEST_F(RunGuardTest, OneRunAtATime) {
  auto& guard = KivSDKStateManager::shared();
  EXPECT_FALSE(guard.isRunning());
  EXPECT_TRUE(guard.beginRun());
  EXPECT_FALSE(guard.beginRun());
  EXPECT_TRUE(guard.isRunning());
  EXPECT_TRUE(guard.endRun());
  EXPECT_TRUE(guard.endRun());  // harmless when idle
  EXPECT_TRUE(guard.beginRun());
}

TEST_F(RunGuardTest, ExactlyOneOfManyConcurrentBeginsWins) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 1000;
  auto& guard = KivSDKStateManager::shared();
  std::atomic<int> wins{0};
  std::vector<int> winsPerRound(kRounds, 0);
  int round = 0;
  // Between rounds: check the count and release the guard for the next round.
  std::barrier sync(kThreads, [&]() noexcept {
    winsPerRound[static_cast<std::size_t>(round++)] = wins.exchange(0);
    guard.endRun();
  });
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int r = 0; r < kRounds; ++r) {
        if (guard.beginRun()) wins.fetch_add(1);
        sync.arrive_and_wait();
      }
    });
  }
  threads.clear();
  for (int r = 0; r < kRounds; ++r) ASSERT_EQ(winsPerRound[static_cast<std::size_t>(r)], 1) << "round " << r;
}

TEST_F(RunGuardTest, TimerMeasuresFromTheLatestStartAndForgetsAfterReading) {
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

TEST_F(RunGuardTest, TimerIsSafeFromManyThreads) {
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
