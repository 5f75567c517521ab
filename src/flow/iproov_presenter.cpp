#include "flow/iproov_presenter.hpp"

#include "platform/dispatch/main_affinity.hpp"

namespace kiv {

std::shared_ptr<KivLiteIProovPresenter> KivLiteIProovPresenter::make(
    double maxHold, const std::shared_ptr<ViewController>& presentingViewController) {
  return std::shared_ptr<KivLiteIProovPresenter>(new KivLiteIProovPresenter(maxHold, presentingViewController));
}

KivLiteIProovPresenter::KivLiteIProovPresenter(double maxHold,
                                               const std::shared_ptr<ViewController>& presentingViewController)
    : presentingViewController_(presentingViewController), gate_(KivLiteDismissalGate::make(maxHold)) {}

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
    self->gate_->hold([controller = std::move(controller), completion = std::move(completion)]() mutable {
      controller->dismiss(false, std::move(completion));
    });
  });
}

}  // namespace kiv
