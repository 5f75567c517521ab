// A transparent overlay that shows an (animated) image centred in it, 100 x
// 100 points, aspect-fit: a place for a host to put a gifImage(...).
//
// The overlay is the toolkit view returned by view(); this object owns it
// and the image view. Everything here is main thread only.
//
//   auto overlay = kiv::KivGifOverlayView::make(host->bounds());
//   overlay->imageView()->setImage(kiv::gifImage("success", *bundle));
//   host->addSubview(overlay->view());
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <functional>
#include <memory>

#include "kiv/platform/ui/geometry.hpp"
#include "kiv/platform/ui/view.hpp"

namespace kiv {

class KivGifOverlayView {
 public:
  static constexpr double kImageSide = 100;  // points

  static std::shared_ptr<KivGifOverlayView> make(Rect frame = {});

  const std::shared_ptr<View>& view() const { return view_; }
  const std::shared_ptr<ImageView>& imageView() const { return imageView_; }

  // Storage for the host, empty (absent) at first; the SDK never calls it.
  const std::function<void()>& completion() const;
  void setCompletion(std::function<void()> completion);

 private:
  KivGifOverlayView() = default;

  std::shared_ptr<View> view_;
  std::shared_ptr<ImageView> imageView_;
  std::function<void()> completion_;
};

}  // namespace kiv

#pragma GCC visibility pop
