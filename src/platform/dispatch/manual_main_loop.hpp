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
  bool isCurrent() const override;

  // Runs queued tasks, and delayed tasks already due, until there is nothing
  // left to run now. Returns how many ran.
  std::size_t runUntilIdle();

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
  mutable std::mutex mutex_;
  std::condition_variable posted_;
  std::deque<Task> ready_;
  std::vector<Delayed> delayed_;
  std::uint64_t nextSequence_ = 0;
};

}  // namespace kiv
