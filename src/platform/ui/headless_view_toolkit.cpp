#include "platform/ui/headless_view_toolkit.hpp"

#include "platform/dispatch/main_affinity.hpp"
#include "platform/ui/headless_view.hpp"
#include "platform/ui/headless_view_controller.hpp"

namespace kiv {

HeadlessViewToolkit::HeadlessViewToolkit(std::shared_ptr<const FontLookup> fonts) : fonts_(std::move(fonts)) {}

std::shared_ptr<View> HeadlessViewToolkit::makeView(Rect frame) {
  KIV_ASSERT_MAIN_THREAD();
  return std::make_shared<HeadlessView>(frame);
}

std::shared_ptr<ImageView> HeadlessViewToolkit::makeImageView(ImageRef image) {
  KIV_ASSERT_MAIN_THREAD();
  return std::make_shared<HeadlessImageView>(std::move(image));
}

std::shared_ptr<ActivityIndicatorView> HeadlessViewToolkit::makeActivityIndicator(ActivityIndicatorStyle style) {
  KIV_ASSERT_MAIN_THREAD();
  return std::make_shared<HeadlessActivityIndicatorView>(style);
}

std::shared_ptr<ViewController> HeadlessViewToolkit::makeViewController() {
  KIV_ASSERT_MAIN_THREAD();
  return std::make_shared<HeadlessViewController>(std::make_shared<HeadlessView>(Rect{}));
}

std::optional<Font> HeadlessViewToolkit::font(std::string_view name, double pointSize) const {
  auto face = fonts_->face(name);
  if (!face) return std::nullopt;
  return Font{std::move(face->family), pointSize, std::move(face->style)};
}

}  // namespace kiv
