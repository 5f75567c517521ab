#include "kiv/gif_overlay_view.hpp"

#include <utility>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/dispatch/main_affinity.hpp"

namespace kiv {

std::shared_ptr<KivGifOverlayView> KivGifOverlayView::make(Rect frame) {
  KIV_ASSERT_MAIN_THREAD();
  auto& ui = *platform()->ui;
  auto self = std::shared_ptr<KivGifOverlayView>(new KivGifOverlayView());
  self->view_ = ui.makeView(frame);
  self->view_->setBackgroundColor(Color::clear());
  self->imageView_ = ui.makeImageView(nullptr);
  self->imageView_->setContentMode(ContentMode::scaleAspectFit);
  self->view_->addSubview(self->imageView_);
  self->imageView_->centerInSuperview(Size{kImageSide, kImageSide});
  return self;
}

const std::function<void()>& KivGifOverlayView::completion() const {
  KIV_ASSERT_MAIN_THREAD();
  return completion_;
}

void KivGifOverlayView::setCompletion(std::function<void()> completion) {
  KIV_ASSERT_MAIN_THREAD();
  completion_ = std::move(completion);
}

}  // namespace kiv
