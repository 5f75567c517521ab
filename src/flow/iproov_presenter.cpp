#include "flow/iproov_presenter.hpp"

#include "kiv/platform/platform.hpp"
#include "platform/dispatch/main_affinity.hpp"

namespace kiv {

std::shared_ptr<KivLiteIProovPresenter> KivLiteIProovPresenter::make(
    double maxHold, const std::shared_ptr<ViewController>& presentingViewController) {
  return std::shared_ptr<KivLiteIProovPresenter>(new KivLiteIProovPresenter(maxHold, presentingViewController));
}

KivLiteIProovPresenter::KivLiteIProovPresenter(double maxHold,
                                               const std::shared_ptr<ViewController>& presentingViewController)
    : presentingViewController_(presentingViewController), maxHold_(maxHold) {}

KivLiteIProovPresenter::~KivLiteIProovPresenter() {
  // The last owner may let go on any thread; the work itself belongs on the
  // main thread, where it runs unless a trigger ran it first.
  if (pending_) platform()->mainQueue->post([work = std::move(pending_)] { work->runOnce(); });
}

std::shared_ptr<ViewController> KivLiteIProovPresenter::topmostPresenter() const {
  KIV_ASSERT_MAIN_THREAD();
  auto current = presentingViewController_.lock();
  if (!current) return nullptr;
  for (;;) {
    auto presented = current->presentedViewController();
    if (!presented || presented->isBeingDismissed()) return current;
    current = std::move(presented);
  }
}

void KivLiteIProovPresenter::present(std::shared_ptr<ViewController> iProovViewController, Task completion) {
  KIV_ASSERT_MAIN_THREAD();
  iProovViewController->setModalPresentationStyle(ModalPresentationStyle::fullScreen);
  auto top = topmostPresenter();
  if (!top) {
    if (completion) completion();
    return;
  }
  top->present(std::move(iProovViewController), false, std::move(completion));
}

void KivLiteIProovPresenter::dismiss(std::shared_ptr<ViewController> iProovViewController, Task completion) {
  runOnMain([weak = weak_from_this(), controller = std::move(iProovViewController),
             completion = std::move(completion)]() mutable {
    if (!controller || !controller->presentingViewController()) {
      if (completion) completion();
      return;
    }
    auto self = weak.lock();
    if (!self) {
      controller->dismiss(false, std::move(completion));
      return;
    }
    self->hold(std::move(controller), std::move(completion));
  });
}

void KivLiteIProovPresenter::hold(std::shared_ptr<ViewController> iProovViewController, Task completion) {
  auto work = std::make_shared<KivLiteDismissalWork>(
      [controller = std::move(iProovViewController), completion = std::move(completion)]() mutable {
        controller->dismiss(false, std::move(completion));
      });
  // A work replaced here is left to its own timer.
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

void KivLiteIProovPresenter::flush() {
  KIV_ASSERT_MAIN_THREAD();
  if (!pending_) return;
  auto work = std::move(pending_);
  pending_.reset();
  work->runOnce();
}

void KivLiteIProovPresenter::markResultDelivered() {
  runOnMain([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self || self->resultWasDelivered_) return;
    self->resultWasDelivered_ = true;
    self->flush();
  });
}

bool KivLiteIProovPresenter::resultWasDelivered() const {
  KIV_ASSERT_MAIN_THREAD();
  return resultWasDelivered_;
}

bool KivLiteIProovPresenter::hasPendingDismissal() const {
  KIV_ASSERT_MAIN_THREAD();
  return pending_ != nullptr;
}

}  // namespace kiv
