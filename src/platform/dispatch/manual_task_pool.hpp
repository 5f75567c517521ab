// A task pool for tests that runs on the manual main loop: detached tasks
// and serial-queue tasks join the loop's queue in posting order and run when
// the test runs the loop (runUntilIdle(), advance()). A whole attempt then
// plays one way only, whatever the machine's scheduling.
//
// Pool tasks still count as off the main thread: the loop reports
// isCurrent() false while one runs (ManualMainLoop::postOffMain), so a
// main-thread assertion in code a pool task calls fires as it would on a
// real pool. What it cannot show is two tasks running at once.
//
//   auto loop = std::make_shared<ManualMainLoop>(clock);
//   auto pool = std::make_shared<ManualTaskPool>(loop);
//   pool->post([] { ... });   // runs at loop->runUntilIdle()
#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>

#include "kiv/platform/task_pool.hpp"
#include "platform/dispatch/manual_main_loop.hpp"

namespace kiv {

class ManualTaskPool final : public TaskPool {
 public:
  // Construct on the loop's thread. The pool and its queues hold the loop
  // weakly: once the loop is gone, what they are given is dropped.
  explicit ManualTaskPool(std::shared_ptr<ManualMainLoop> loop);

  void post(Task task) override;
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) override;

  // On the loop's thread: runs the loop's queued tasks, in order (main-queue
  // tasks posted before a pool task run before it), until no pool task is
  // left. On another thread: blocks until the loop's thread has run them.
  void waitIdle() override;

  // Tasks posted and not yet run.
  std::size_t outstanding() const;

  struct State {
    mutable std::mutex mutex;
    std::condition_variable idle;
    std::size_t outstanding = 0;
  };

 private:
  std::weak_ptr<ManualMainLoop> loop_;
  std::shared_ptr<State> state_;
  std::thread::id loopThread_;
};

}  // namespace kiv
