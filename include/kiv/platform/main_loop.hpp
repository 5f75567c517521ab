// A real main queue for hosts without a UI toolkit of their own (the
// command-line host): run() on the main thread until stop().
#pragma once

#include <memory>

#include "kiv/platform/main_queue.hpp"

namespace kiv {

class MainLoop final : public MainQueue {
 public:
  MainLoop();
  ~MainLoop() override;
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  // Runs tasks on the calling thread, which becomes the main thread, until
  // stop(). Tasks still queued at stop() are dropped.
  void run();
  // Safe from any thread, including from a task.
  void stop();

  void post(Task task) override;
  DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner = nullptr) override;
  void cancelAll(OwnerToken owner) override;
  bool isCurrent() const override;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace kiv
