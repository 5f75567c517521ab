#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kiv/platform/main_loop.hpp"
#include "platform/dispatch/thread_task_pool.hpp"

namespace kiv {
namespace {

TEST(MainLoop, RunsPostedAndDelayedTasksOnItsThreadUntilStopped) {
  MainLoop loop;
  std::vector<std::string> ran;
  std::atomic<bool> onLoop{true};
  int owner = 0;
  loop.postAfter(
      0.05, [&] { ran.push_back("cancelled"); }, &owner);
  loop.cancelAll(&owner);
  loop.postAfter(1e10, [&] { ran.push_back("in three centuries"); });  // cut to a century, not overflowed
  loop.postAfter(0.02, [&] {
    ran.push_back("delayed");
    loop.stop();
  });
  std::jthread poster([&] {
    loop.post([&] {
      onLoop = onLoop && loop.isCurrent();
      ran.push_back("posted");
    });
  });
  poster.join();
  loop.run();
  EXPECT_EQ(ran, (std::vector<std::string>{"posted", "delayed"}));
  EXPECT_TRUE(onLoop);
  EXPECT_FALSE(loop.isCurrent());
}

// A stop made before the run, from any thread, is never lost: the run it
// meets returns at once and the work it found waits for the next.
TEST(MainLoop, AStopBeforeTheRunEndsTheNextRunAtOnce) {
  MainLoop loop;
  bool ran = false;
  loop.post([&] {
    ran = true;
    loop.stop();
  });
  std::jthread([&] { loop.stop(); }).join();
  loop.run();
  EXPECT_FALSE(ran);
  loop.run();
  EXPECT_TRUE(ran);
}

TEST(ThreadTaskPool, SerialQueuesKeepOrderAndWaitIdleCoversNestedTasks) {
  ThreadTaskPool pool(4);
  auto queue = pool.makeSerialQueue("kiv.test.serial");
  std::vector<int> order;  // only touched by the serial queue
  std::atomic<int> nested{0};
  for (int i = 0; i < 200; ++i) {
    queue->post([&, i] { order.push_back(i); });
    pool.post([&] { pool.post([&] { nested.fetch_add(1); }); });
  }
  pool.post([] { throw std::runtime_error("swallowed"); });
  pool.waitIdle();
  std::vector<int> expected(200);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
  EXPECT_EQ(nested.load(), 200);
}

}  // namespace
}  // namespace kiv
