#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kiv/platform/main_loop.hpp"
#include "platform/dispatch/manual_main_loop.hpp"
#include "platform/dispatch/manual_task_pool.hpp"
#include "platform/dispatch/thread_task_pool.hpp"

namespace kiv {
namespace {

class ManualMainLoopTest : public ::testing::Test {
 protected:
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  ManualMainLoop loop{clock};
  std::vector<std::string> ran;
};

// Each task notes the fake clock's reading as it runs: advancing past several
// due times runs each task at its own.
TEST_F(ManualMainLoopTest, DelayedTasksRunInTimeOrderAtTheirDueTimeUnlessCancelled) {
  const auto start = clock->now();
  const auto note = [&](std::string name) {
    ran.push_back(name + "@" + std::to_string(static_cast<int>(secondsBetween(start, clock->now()) * 10)));
  };
  loop.postAfter(2.0, [&] {
    note("2");
    loop.post([&] { note("posted by 2"); });
  });
  loop.postAfter(1.0, [&] {
    note("1");
    loop.postAfter(0.5, [&] { note("1.5"); });
  });
  loop.postAfter(1.0, [&] { note("1 again"); });
  loop.postAfter(0.5, [&] { note("cancelled"); }).cancel();
  int owner = 0;
  loop.postAfter(
      0.5, [&] { note("owned"); }, &owner);
  loop.cancelAll(&owner);
  loop.advance(0.999);
  EXPECT_TRUE(ran.empty());
  loop.advance(0.001);  // due now
  EXPECT_EQ(ran, (std::vector<std::string>{"1@10", "1 again@10"}));
  loop.advance(4.0);
  EXPECT_EQ(ran, (std::vector<std::string>{"1@10", "1 again@10", "1.5@15", "2@20", "posted by 2@20"}));
  EXPECT_EQ(secondsBetween(start, clock->now()), 5.0);
  EXPECT_EQ(loop.pendingDelayedCount(), 0u);
}

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

TEST_F(ManualMainLoopTest, ManualPoolTasksJoinTheLoopInOrderAndRunAsOffMain) {
  auto shared = std::make_shared<ManualMainLoop>(clock);
  ManualTaskPool pool(shared);
  auto queue = pool.makeSerialQueue("kiv.test.serial");
  auto where = [&] { return shared->isCurrent() ? " main" : " pool"; };
  shared->post([&] { ran.push_back(std::string("a") + where()); });
  queue->post([&] {
    ran.push_back(std::string("b") + where());
    pool.post([&] { ran.push_back(std::string("d") + where()); });
    shared->post([&] { ran.push_back(std::string("e") + where()); });
  });
  pool.post([&] {
    ran.push_back(std::string("c") + where());
    throw std::runtime_error("swallowed");
  });
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(pool.outstanding(), 2u);
  // On the loop's thread waitIdle() runs the loop until the pool is done,
  // and no further: e was posted after d.
  pool.waitIdle();
  EXPECT_EQ(ran, (std::vector<std::string>{"a main", "b pool", "c pool", "d pool"}));
  EXPECT_EQ(pool.outstanding(), 0u);
  shared->runUntilIdle();
  EXPECT_EQ(ran.back(), "e main");
}

}  // namespace
}  // namespace kiv
