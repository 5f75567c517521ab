// Background work: detached tasks and serial queues.
//
// Analytics posts, service dispatch and offline-queue flushes never run on the
// main thread; they go to the one shared TaskPool. A SerialQueue runs its
// tasks one at a time, in order, on the pool's threads.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>
#include <string>

#include "kiv/platform/main_queue.hpp"

namespace kiv {

class SerialQueue {
 public:
  virtual ~SerialQueue() = default;
  virtual void post(Task task) = 0;
  virtual const std::string& label() const = 0;
};

class TaskPool {
 public:
  virtual ~TaskPool() = default;

  // Runs `task` on some pool thread. An exception escaping a task is
  // swallowed: detached work never takes the host down.
  virtual void post(Task task) = 0;

  // A queue that runs its tasks in order, one at a time, on the pool. It
  // stays usable after its owner drops it until its tasks have run.
  virtual std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) = 0;

  // Blocks until no task is queued or running (tasks posted by tasks
  // included). For tests and orderly shutdown; never call it from a task.
  virtual void waitIdle() = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
