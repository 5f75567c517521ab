// A main queue for tests: nothing runs until the test says so, and delayed
// tasks are due on a FakeClock. Deterministic, no sleeps.
//
//   auto clock = std::make_shared<FakeClock>();
//   ManualMainLoop loop(clock);
//   loop.postAfter(3.0, [&] { fired = true; });
//   loop.advance(2.999);   // not yet
//   loop.advance(0.001);   // fired
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "kiv/platform/main_queue.hpp"
#include "platform/dispatch/fake_clock.hpp"

namespace kiv {

class ManualMainLoop final : public MainQueue {
 public:
  // The constructing thread is the main thread.
  explicit ManualMainLoop(std::shared_ptr<FakeClock> clock);

  void post(Task task) override;
  DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner = nullptr) override;
  void cancelAll(OwnerToken owner) override;
  // True on the constructing thread, except while a task posted with
  // postOffMain() runs.
  bool isCurrent() const override;

  // Queues `task` behind the posted ones, in the same order, but runs it as
  // work from another thread: isCurrent() is false while it runs, so
  // main-thread checks and "inline when already on the main thread" paths
  // behave as they would on a pool thread. The manual task pool runs its
  // tasks this way. Safe from any thread.
  void postOffMain(Task task);

  // Runs queued tasks, and delayed tasks already due, until there is nothing
  // left to run now. Returns how many ran.
  std::size_t runUntilIdle();

  // As runUntilIdle(), one task at a time, for as long as `more()` holds
  // before each task. Returns how many ran.
  std::size_t runWhile(const std::function<bool()>& more);

  // Moves the clock forward by `seconds`, running each delayed task at its
  // due time (in due order, ties in posting order) with runUntilIdle() after
  // each, then runs what is ready at the end.
  void advance(double seconds);

  // Runs tasks as they arrive, including those posted from other threads
  // (HTTP completions, pool tasks), until `done()` holds or `timeout` of real
  // time passes without it. Returns done(). The fake clock does not move.
  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(10));

  // Delayed tasks not yet run, cancelled ones excluded.
  std::size_t pendingDelayedCount() const;

  const std::shared_ptr<FakeClock>& clock() const { return clock_; }

 private:
  struct Delayed {
    TimePoint due;
    std::uint64_t sequence;
    OwnerToken owner;
    DelayedTaskHandle handle;
    Task task;
  };

  std::optional<Task> takeReady();

  std::shared_ptr<FakeClock> clock_;
  std::thread::id mainThread_;
  bool offMain_ = false;  // read and written on the main thread only
  mutable std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<Task> ready_;
  std::vector<Delayed> delayed_;
  std::uint64_t nextSequence_ = 0;
};

}  // namespace kiv
