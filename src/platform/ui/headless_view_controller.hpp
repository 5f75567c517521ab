// The headless toolkit's view controllers: the presentation graph in memory.
// An animated transition lasts kTransitionSeconds on the main queue's clock.
// A toolkit that draws (the GTK one) derives from it and shows or hides a
// controller's view when the graph links or unlinks it.
#pragma once

#include <memory>
#include <vector>

#include "kiv/platform/ui/view_controller.hpp"

namespace kiv {

class HeadlessViewController : public ViewController {
 public:
  static constexpr double kTransitionSeconds = 0.3;

  explicit HeadlessViewController(std::shared_ptr<View> view);

  std::shared_ptr<View> view() const override;
  std::shared_ptr<ViewController> presentedViewController() const override;
  std::shared_ptr<ViewController> presentingViewController() const override;
  bool isBeingDismissed() const override;
  ModalPresentationStyle modalPresentationStyle() const override;
  void setModalPresentationStyle(ModalPresentationStyle style) override;
  void present(std::shared_ptr<ViewController> controller, bool animated, Task completion) override;
  void dismiss(bool animated, Task completion) override;

 protected:
  // Called on a controller right after `presenter` presented it, and once
  // its dismissal unlinked it. Nothing to do in memory.
  virtual void didPresent(HeadlessViewController& /*presenter*/) {}
  virtual void didDismiss() {}

 private:
  // Dismisses presented_ (this controller is its presenter).
  void dismissPresented(bool animated, Task completion);
  // Unlinks presented_ and every controller above it, and lets the
  // completions of their dismissals run.
  void unlinkPresented();

  std::shared_ptr<View> view_;
  std::shared_ptr<HeadlessViewController> presented_;
  std::weak_ptr<HeadlessViewController> presenting_;
  ModalPresentationStyle style_ = ModalPresentationStyle::automatic;
  bool beingDismissed_ = false;
  std::vector<Task> dismissCompletions_;  // of the dismissal under way
};

}  // namespace kiv
