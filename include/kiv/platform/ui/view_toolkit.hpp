// The interface toolkit, as one platform service (Platform::ui): the factory
// of views and view controllers, and the fonts.
//
// The Linux bundle installs a headless toolkit that keeps the whole view and
// controller graph in memory, so that everything the SDK shows can be
// inspected by a test or printed by the command-line host. A phone host
// installs one that creates its real toolkit's objects.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>
#include <optional>
#include <string_view>

#include "kiv/platform/ui/font.hpp"
#include "kiv/platform/ui/view.hpp"
#include "kiv/platform/ui/view_controller.hpp"

namespace kiv {

class ViewToolkit {
 public:
  virtual ~ViewToolkit() = default;

  // Factories: main thread only.
  virtual std::shared_ptr<View> makeView(Rect frame) = 0;
  // Its frame is the image's size in points (empty without an image).
  virtual std::shared_ptr<ImageView> makeImageView(ImageRef image) = 0;
  virtual std::shared_ptr<ActivityIndicatorView> makeActivityIndicator(ActivityIndicatorStyle style) = 0;
  // A controller with an empty plain view.
  virtual std::shared_ptr<ViewController> makeViewController() = 0;

  // Fonts: safe from any thread.
  virtual const FontLookup& fonts() const = 0;
  // The face that `name` names (a family, PostScript or full name, as
  // FontLookup::face) at `pointSize`; absent when nothing installed has it.
  virtual std::optional<Font> font(std::string_view name, double pointSize) const = 0;
  // The size of the system's standard text, in points.
  virtual double systemFontSize() const = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
