// The host's main thread as a queue.
//
// The facade, the view model, the presenter and every view live on the main
// thread, and every delegate call is made there. Work from other threads
// reaches them by post(); timers by postAfter().
//
//   queue.post([weak = weak_from_this()] { if (auto self = weak.lock()) self->finish(); });
//   auto hold = queue.postAfter(3.0, [..] { .. }, this);   // hold.cancel() or queue.cancelAll(this)
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <atomic>
#include <functional>
#include <memory>

namespace kiv {

using Task = std::function<void()>;

// Identifies the object a delayed task was registered for, so that its
// teardown can drop them all at once. Only compared, never dereferenced.
using OwnerToken = const void*;

// Cancels one delayed task. Copies share the same task; cancelling is
// idempotent, safe from any thread, and harmless after the task ran.
class DelayedTaskHandle {
 public:
  DelayedTaskHandle() = default;
  explicit DelayedTaskHandle(std::shared_ptr<std::atomic<bool>> cancelled) : cancelled_(std::move(cancelled)) {}

  void cancel() const {
    if (cancelled_) cancelled_->store(true);
  }
  bool isCancelled() const { return cancelled_ && cancelled_->load(); }

 private:
  std::shared_ptr<std::atomic<bool>> cancelled_;
};

class MainQueue {
 public:
  virtual ~MainQueue() = default;

  // Runs `task` on the main thread after everything already posted. Safe
  // from any thread; never runs the task inline.
  virtual void post(Task task) = 0;

  // Runs `task` on the main thread once `seconds` have passed on the clock
  // the queue runs on. Safe from any thread.
  virtual DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner = nullptr) = 0;

  // Drops every pending delayed task registered for `owner`.
  virtual void cancelAll(OwnerToken owner) = 0;

  // True on the thread that runs this queue.
  virtual bool isCurrent() const = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
