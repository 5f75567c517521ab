// Views: the least of an interface toolkit that the SDK's overlays need.
//
// A View is a rectangle in its superview (frame, in the superview's points)
// with its own coordinate space (bounds: origin 0,0 and the frame's size),
// an ordered list of subviews that it owns, a weak link to its superview,
// hidden and user-interaction flags, an optional background colour and a
// layer that stores animations. ImageView and ActivityIndicatorView add what
// the loading view and the GIF overlay show.
//
// Views are made by the installed ViewToolkit and owned by shared_ptr: a
// superview holds its subviews strongly, a subview its superview weakly.
// Everything here is main thread only; debug builds assert it.
//
// The SDK's own views (the loading overlay, the GIF overlay) are built by
// composition: they own a root View made by the toolkit and hand it out
// through view(). A phone host implements these interfaces over its own
// toolkit's views, one to one.
//
//   auto& ui = *kiv::platform()->ui;
//   auto overlay = ui.makeView(Rect{});
//   auto spinner = ui.makeImageView(image);
//   overlay->addSubview(spinner);
//   spinner->centerInSuperview(Size{100, 100});
//   overlay->setFrame(host->bounds());   // spinner follows
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>
#include <optional>
#include <vector>

#include "kiv/platform/ui/color.hpp"
#include "kiv/platform/ui/geometry.hpp"
#include "kiv/platform/ui/image.hpp"
#include "kiv/platform/ui/layer.hpp"

namespace kiv {

class View : public std::enable_shared_from_this<View> {
 public:
  virtual ~View() = default;

  virtual Rect frame() const = 0;
  virtual void setFrame(Rect frame) = 0;
  // Origin 0,0 and the frame's size.
  virtual Rect bounds() const = 0;

  // Appends `subview` on top of the others, first removing it from its
  // current superview. Adding a view to itself or to one of its own
  // subviews is ignored.
  virtual void addSubview(std::shared_ptr<View> subview) = 0;
  // Harmless without a superview.
  virtual void removeFromSuperview() = 0;
  virtual std::vector<std::shared_ptr<View>> subviews() const = 0;
  // Absent when this view has none (or it was released).
  virtual std::shared_ptr<View> superview() const = 0;

  // Keeps this view centred in its superview, `size` wide and high (its
  // intrinsic size when absent), whenever it is added to a superview or the
  // superview's frame changes: the centre-X, centre-Y, width and height
  // constraints of a phone toolkit. The frame is no longer set by hand.
  virtual void centerInSuperview(std::optional<Size> size) = 0;
  // The natural size of the content (an image's size, an indicator's
  // diameter); absent for a plain view.
  virtual std::optional<Size> intrinsicContentSize() const = 0;

  virtual bool isHidden() const = 0;
  virtual void setHidden(bool hidden) = 0;
  // True for a new view.
  virtual bool isUserInteractionEnabled() const = 0;
  virtual void setUserInteractionEnabled(bool enabled) = 0;
  // Absent (the default) draws nothing: the same as Color::clear().
  virtual ColorRef backgroundColor() const = 0;
  virtual void setBackgroundColor(ColorRef color) = 0;

  virtual Layer& layer() = 0;
  virtual const Layer& layer() const = 0;
};

// How an image fills an image view whose aspect ratio differs.
enum class ContentMode { scaleToFill, scaleAspectFit, scaleAspectFill, center };

class ImageView : public View {
 public:
  virtual ImageRef image() const = 0;
  // Absent clears the view.
  virtual void setImage(ImageRef image) = 0;
  // scaleToFill for a new image view.
  virtual ContentMode contentMode() const = 0;
  virtual void setContentMode(ContentMode mode) = 0;
};

enum class ActivityIndicatorStyle { medium, large };

// The platform's standard spinning progress indicator. It is not hidden when
// stopped: whoever shows it decides.
class ActivityIndicatorView : public View {
 public:
  virtual ActivityIndicatorStyle style() const = 0;
  virtual bool isAnimating() const = 0;
  // Both are harmless when already in that state.
  virtual void startAnimating() = 0;
  virtual void stopAnimating() = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
