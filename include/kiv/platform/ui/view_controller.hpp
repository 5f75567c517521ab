// View controllers and modal presentation.
//
// A controller owns one view. Presenting controller B from A makes B A's
// presented view controller and A B's presenting view controller; a
// controller presents at most one other at a time, so the presented
// controllers form a chain from a root (what a host hands the SDK) upward.
// The presenting controller holds the presented one strongly; the link back
// is weak.
//
// Main thread only (debug builds assert). The graph changes synchronously
// inside present() and inside a dismiss() without animation; an animated
// dismissal first marks the controller as being dismissed and unlinks it
// when its transition ends. Completions always run later, from the main
// queue: at once for a transition without animation, at the end of the
// transition otherwise.
//
//   host->present(vendorScreen, /*animated=*/false, [] { /* on screen */ });
//   vendorScreen->dismiss(/*animated=*/false, [] { /* gone */ });
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>

#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/ui/view.hpp"

namespace kiv {

enum class ModalPresentationStyle { automatic, fullScreen, overFullScreen, pageSheet, formSheet };

class ViewController : public std::enable_shared_from_this<ViewController> {
 public:
  virtual ~ViewController() = default;

  // The controller's root view; always present.
  virtual std::shared_ptr<View> view() const = 0;

  // The controller this one presents; absent when none.
  virtual std::shared_ptr<ViewController> presentedViewController() const = 0;
  // The controller that presents this one; absent when it is not presented
  // (or its presenter was released).
  virtual std::shared_ptr<ViewController> presentingViewController() const = 0;
  // True from the start of an animated dismissal of this controller until
  // its transition ends.
  virtual bool isBeingDismissed() const = 0;

  // automatic for a new controller.
  virtual ModalPresentationStyle modalPresentationStyle() const = 0;
  virtual void setModalPresentationStyle(ModalPresentationStyle style) = 0;

  // Presents `controller` over this one; a full-screen style gives its view
  // this controller's view bounds. When the controller this one presents is
  // being dismissed, that dismissal ends first. Refused, with no completion,
  // as a phone toolkit refuses it: when this controller already presents one
  // that stays, when it is being dismissed itself, or when `controller` is
  // already presented or presents one.
  virtual void present(std::shared_ptr<ViewController> controller, bool animated, Task completion) = 0;

  // Dismisses the controller this one presents, with everything above it;
  // when it presents nothing, asks its own presenting controller to dismiss
  // it. With nothing to dismiss only the completion runs. A dismissal
  // requested while one is already under way finishes with it.
  virtual void dismiss(bool animated, Task completion) = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
