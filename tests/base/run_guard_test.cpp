#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cstdlib>
#include <thread>
#include <vector>

#include "base/state_manager.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class RunGuardTest : public testing::PlatformTest {};

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

}  // namespace
}  // namespace kiv
