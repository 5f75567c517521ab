// One dismissal of the capture screen, which several triggers race to run
// (the result delivered, the hold elapsed, the presenter destroyed): the
// first one runs it, the others find it done. Main thread only.
#pragma once

#include <utility>

#include "kiv/platform/main_queue.hpp"

namespace kiv {

class KivLiteDismissalWork {
 public:
  explicit KivLiteDismissalWork(Task run) : run_(std::move(run)) {}

  bool didRun() const { return didRun_; }

  void runOnce() {
    if (didRun_) return;
    didRun_ = true;
    // Drop the closure (and the controller it holds) once it has run.
    Task run = std::move(run_);
    run_ = nullptr;
    if (run) run();
  }

 private:
  bool didRun_ = false;
  Task run_;
};

}  // namespace kiv
