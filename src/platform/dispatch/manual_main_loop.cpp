#include "platform/dispatch/manual_main_loop.hpp"

#include <algorithm>
#include "base/delay.hpp"

namespace kiv {

ManualMainLoop::ManualMainLoop(std::shared_ptr<FakeClock> clock)
    : clock_(std::move(clock)), mainThread_(std::this_thread::get_id()) {}

void ManualMainLoop::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    ready_.push_back(std::move(task));
  }
  posted_.notify_all();
}

DelayedTaskHandle ManualMainLoop::postAfter(double seconds, Task task, OwnerToken owner) {
  DelayedTaskHandle handle(std::make_shared<std::atomic<bool>>(false));
  auto due = clock_->now() + delayFromSeconds(seconds);
  {
    std::lock_guard lock(mutex_);
    delayed_.push_back(Delayed{due, nextSequence_++, owner, handle, std::move(task)});
  }
  posted_.notify_all();
  return handle;
}

void ManualMainLoop::cancelAll(OwnerToken owner) {
  std::lock_guard lock(mutex_);
  std::erase_if(delayed_, [owner](const Delayed& d) { return d.owner == owner; });
}

// The flag is only read on the main thread: other threads stop at the id.
bool ManualMainLoop::isCurrent() const { return std::this_thread::get_id() == mainThread_ && !offMain_; }

void ManualMainLoop::postOffMain(Task task) {
  post([this, task = std::move(task)] {
    struct Restore {
      bool& flag;
      bool saved;
      ~Restore() { flag = saved; }
    } restore{offMain_, offMain_};
    offMain_ = true;
    task();
  });
}

// The next task to run now: a queued one first, else the earliest due one.
std::optional<Task> ManualMainLoop::takeReady() {
  std::lock_guard lock(mutex_);
  std::erase_if(delayed_, [](const Delayed& d) { return d.handle.isCancelled(); });
  if (!ready_.empty()) {
    Task task = std::move(ready_.front());
    ready_.pop_front();
    return task;
  }
  auto now = clock_->now();
  auto earliest = std::min_element(delayed_.begin(), delayed_.end(), [](const Delayed& a, const Delayed& b) {
    return a.due != b.due ? a.due < b.due : a.sequence < b.sequence;
  });
  if (earliest == delayed_.end() || earliest->due > now) return std::nullopt;
  Task task = std::move(earliest->task);
  delayed_.erase(earliest);
  return task;
}

std::size_t ManualMainLoop::runUntilIdle() {
  return runWhile([] { return true; });
}

std::size_t ManualMainLoop::runWhile(const std::function<bool()>& more) {
  std::size_t ran = 0;
  while (more()) {
    auto task = takeReady();
    if (!task) break;
    (*task)();
    ++ran;
  }
  return ran;
}

void ManualMainLoop::advance(double seconds) {
  const auto target =
      clock_->now() + std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
  runUntilIdle();
  for (;;) {
    std::optional<TimePoint> next;
    {
      std::lock_guard lock(mutex_);
      for (const auto& d : delayed_) {
        if (!d.handle.isCancelled() && d.due <= target && (!next || d.due < *next)) next = d.due;
      }
    }
    if (!next) break;
    if (*next > clock_->now()) clock_->set(*next);
    runUntilIdle();
  }
  if (target > clock_->now()) clock_->set(target);
  runUntilIdle();
}

bool ManualMainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    runUntilIdle();
    if (done()) return true;
    std::unique_lock lock(mutex_);
    if (!posted_.wait_until(lock, deadline, [this] { return !ready_.empty(); })) {
      lock.unlock();
      runUntilIdle();
      return done();
    }
  }
}

std::size_t ManualMainLoop::pendingDelayedCount() const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(
      std::count_if(delayed_.begin(), delayed_.end(), [](const Delayed& d) { return !d.handle.isCancelled(); }));
}

}  // namespace kiv
