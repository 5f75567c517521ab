#include "flow/dismissal_gate.hpp"

#include <utility>

#include "kiv/platform/platform.hpp"
#include "platform/dispatch/main_affinity.hpp"

namespace kiv {

// One dismissal, which the triggers race to run: the first one runs it, the
// others find it done. Main thread only.
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

std::shared_ptr<KivLiteDismissalGate> KivLiteDismissalGate::make(double maxHold) {
  return std::shared_ptr<KivLiteDismissalGate>(new KivLiteDismissalGate(maxHold));
}

KivLiteDismissalGate::~KivLiteDismissalGate() {
  // The last owner may let go on any thread; the work itself belongs on the
  // main thread, where it runs unless a trigger ran it first.
  if (pending_) platform()->mainQueue->post([work = std::move(pending_)] { work->runOnce(); });
}

void KivLiteDismissalGate::hold(Task dismissal) {
  KIV_ASSERT_MAIN_THREAD();
  auto work = std::make_shared<KivLiteDismissalWork>(std::move(dismissal));
  pending_ = work;
  platform()->mainQueue->postAfter(
      maxHold_,
      [weak = weak_from_this(), work] {
        if (auto self = weak.lock(); self && self->pending_ == work) self->pending_.reset();
        work->runOnce();
      },
      this);
  if (resultWasDelivered_) flush();
}

void KivLiteDismissalGate::flush() {
  KIV_ASSERT_MAIN_THREAD();
  if (!pending_) return;
  auto work = std::move(pending_);
  pending_.reset();
  work->runOnce();
}

void KivLiteDismissalGate::markResultDelivered() {
  runOnMain([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self || self->resultWasDelivered_) return;
    self->resultWasDelivered_ = true;
    self->flush();
  });
}

bool KivLiteDismissalGate::resultWasDelivered() const {
  KIV_ASSERT_MAIN_THREAD();
  return resultWasDelivered_;
}

bool KivLiteDismissalGate::hasPendingDismissal() const {
  KIV_ASSERT_MAIN_THREAD();
  return pending_ != nullptr;
}

}  // namespace kiv
