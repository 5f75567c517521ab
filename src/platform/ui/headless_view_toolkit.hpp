// The toolkit of the Linux bundle: views and controllers kept in memory
// (see headless_view.hpp, headless_view_controller.hpp) and the fonts of a
// FontLookup (fontconfig on Linux, a fixed list in tests).
#pragma once

#include <memory>

#include "kiv/platform/ui/view_toolkit.hpp"

namespace kiv {

class HeadlessViewToolkit final : public ViewToolkit {
 public:
  // The phone toolkit's standard text size.
  static constexpr double kSystemFontSize = 14.0;

  explicit HeadlessViewToolkit(std::shared_ptr<const FontLookup> fonts);

  std::shared_ptr<View> makeView(Rect frame) override;
  std::shared_ptr<ImageView> makeImageView(ImageRef image) override;
  std::shared_ptr<ActivityIndicatorView> makeActivityIndicator(ActivityIndicatorStyle style) override;
  std::shared_ptr<ViewController> makeViewController() override;

  const FontLookup& fonts() const override { return *fonts_; }
  std::optional<Font> font(std::string_view name, double pointSize) const override;
  double systemFontSize() const override { return kSystemFontSize; }

 private:
  std::shared_ptr<const FontLookup> fonts_;
};

}  // namespace kiv
