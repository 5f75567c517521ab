#include "platform/ui/headless_view_controller.hpp"

#include "kiv/platform/platform.hpp"
#include "platform/dispatch/main_affinity.hpp"

namespace kiv {
namespace {

// Completions never run inside the call that triggers them, as on a phone.
void complete(Task completion, bool animated) {
  if (!completion) return;
  const auto& queue = platform()->mainQueue;
  if (animated) {
    queue->postAfter(HeadlessViewController::kTransitionSeconds, std::move(completion));
  } else {
    queue->post(std::move(completion));
  }
}

bool coversScreen(ModalPresentationStyle style) {
  return style == ModalPresentationStyle::fullScreen || style == ModalPresentationStyle::overFullScreen;
}

}  // namespace

HeadlessViewController::HeadlessViewController(std::shared_ptr<View> view) : view_(std::move(view)) {}

std::shared_ptr<View> HeadlessViewController::view() const { return view_; }

std::shared_ptr<ViewController> HeadlessViewController::presentedViewController() const {
  KIV_ASSERT_MAIN_THREAD();
  return presented_;
}

std::shared_ptr<ViewController> HeadlessViewController::presentingViewController() const {
  KIV_ASSERT_MAIN_THREAD();
  return presenting_.lock();
}

bool HeadlessViewController::isBeingDismissed() const {
  KIV_ASSERT_MAIN_THREAD();
  return beingDismissed_;
}

ModalPresentationStyle HeadlessViewController::modalPresentationStyle() const {
  KIV_ASSERT_MAIN_THREAD();
  return style_;
}

void HeadlessViewController::setModalPresentationStyle(ModalPresentationStyle style) {
  KIV_ASSERT_MAIN_THREAD();
  style_ = style;
}

void HeadlessViewController::present(std::shared_ptr<ViewController> controller, bool animated, Task completion) {
  KIV_ASSERT_MAIN_THREAD();
  auto next = std::dynamic_pointer_cast<HeadlessViewController>(controller);
  if (!next || next.get() == this) return;
  if (beingDismissed_ || next->presenting_.lock() || next->presented_) return;
  if (presented_) {
    if (!presented_->beingDismissed_) return;
    unlinkPresented();  // the leaving controller's transition ends now
  }
  presented_ = next;
  next->presenting_ = std::static_pointer_cast<HeadlessViewController>(shared_from_this());
  if (coversScreen(next->style_)) next->view_->setFrame(view_->bounds());
  next->didPresent(*this);
  complete(std::move(completion), animated);
}

void HeadlessViewController::dismiss(bool animated, Task completion) {
  KIV_ASSERT_MAIN_THREAD();
  if (presented_) {
    dismissPresented(animated, std::move(completion));
  } else if (auto presenter = presenting_.lock()) {
    presenter->dismissPresented(animated, std::move(completion));
  } else {
    complete(std::move(completion), false);
  }
}

void HeadlessViewController::dismissPresented(bool animated, Task completion) {
  auto leaving = presented_;
  if (leaving->beingDismissed_) {
    if (completion) leaving->dismissCompletions_.push_back(std::move(completion));
    return;
  }
  if (!animated) {
    unlinkPresented();
    complete(std::move(completion), false);
    return;
  }
  leaving->beingDismissed_ = true;
  if (completion) leaving->dismissCompletions_.push_back(std::move(completion));
  // The transition keeps the leaving controller alive, as a phone's does.
  platform()->mainQueue->postAfter(
      kTransitionSeconds,
      [leaving] {
        if (auto presenter = leaving->presenting_.lock(); presenter && presenter->presented_ == leaving) {
          presenter->unlinkPresented();
        }
      },
      leaving.get());
}

void HeadlessViewController::unlinkPresented() {
  auto leaving = std::move(presented_);
  presented_.reset();
  while (leaving) {
    leaving->presenting_.reset();
    leaving->beingDismissed_ = false;
    leaving->didDismiss();
    for (auto& completion : leaving->dismissCompletions_) complete(std::move(completion), false);
    leaving->dismissCompletions_.clear();
    leaving = std::move(leaving->presented_);
  }
}

}  // namespace kiv
