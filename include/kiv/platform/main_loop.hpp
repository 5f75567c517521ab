// A real main queue for hosts without a UI toolkit of their own (the
// command-line host): run() on the main thread until stop().
//
// isCurrent() is false on every thread until run() has started, the main
// thread included. Objects that must live on the main thread (the facade,
// the view model, every view) check it in debug builds and abort when it
// does not hold, so a host does not call them before the loop runs: it
// posts its first calls into the loop, then runs it.
//
//   kiv::MainLoop loop;
//   loop.post([&] { startLiveness(); });   // makes the facade, on the main thread
//   loop.run();
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

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
  // stop(). Tasks still queued at stop() stay queued for the next run.
  void run();
  // Makes the run under way return. A stop while none is under way (before
  // the first run, or between two) is kept: the next run returns at once,
  // running nothing. Safe from any thread, including from a task, and never
  // lost to a run starting on another thread at the same time.
  void stop();

  void post(Task task) override;
  DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner = nullptr) override;
  void cancelAll(OwnerToken owner) override;
  bool isCurrent() const override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kiv

#pragma GCC visibility pop
