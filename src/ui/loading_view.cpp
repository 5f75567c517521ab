#include "ui/loading_view.hpp"

#include <numbers>
#include <string>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "kiv/resource_bundle.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "platform/ui/webp_image.hpp"

namespace kiv {
namespace {

constexpr double kDimWhite = 0.0;
constexpr double kDimAlpha = 0.3;

ImageRef loadSpinnerImage() {
  auto bytes = ResourceBundle::sdk()->data(KivLoadingView::kSpinnerResourceName, KivLoadingView::kSpinnerResourceType);
  if (!bytes) return nullptr;
  return decodeFirstWebPFrame(*bytes);
}

}  // namespace

BasicAnimation KivLoadingView::spinAnimation() {
  return BasicAnimation{
      .keyPath = std::string(kRotationKeyPath),
      .fromValue = 0.0,
      .toValue = 2 * std::numbers::pi,
      .duration = 1.0,
      .repeatCount = BasicAnimation::kRepeatForever,
      .timingFunction = TimingFunction::linear,
      .isRemovedOnCompletion = false,
  };
}

std::shared_ptr<KivLoadingView> KivLoadingView::make(Rect frame) {
  KIV_ASSERT_MAIN_THREAD();
  auto& ui = *platform()->ui;
  auto self = std::shared_ptr<KivLoadingView>(new KivLoadingView());
  self->view_ = ui.makeView(frame);

  self->spinnerImageView_ = ui.makeImageView(nullptr);
  self->spinnerImageView_->setContentMode(ContentMode::scaleAspectFit);
  self->spinnerImageView_->setUserInteractionEnabled(false);

  self->activityIndicatorView_ = ui.makeActivityIndicator(ActivityIndicatorStyle::large);

  self->view_->setBackgroundColor(Color::white(kDimWhite, kDimAlpha));
  self->view_->setUserInteractionEnabled(false);
  self->activityIndicatorView_->setUserInteractionEnabled(false);
  self->view_->addSubview(self->activityIndicatorView_);
  self->view_->addSubview(self->spinnerImageView_);
  self->activityIndicatorView_->centerInSuperview(std::nullopt);
  self->spinnerImageView_->centerInSuperview(Size{kSpinnerSide, kSpinnerSide});

  self->applyLoadingType();
  return self;
}

LoadingType KivLoadingView::loadingType() const {
  KIV_ASSERT_MAIN_THREAD();
  return loadingType_;
}

void KivLoadingView::setLoadingType(LoadingType type) {
  KIV_ASSERT_MAIN_THREAD();
  loadingType_ = type;
  applyLoadingType();
}

void KivLoadingView::applyLoadingType() {
  switch (loadingType_) {
    case LoadingType::activityIndicator:
      stopRotation();
      spinnerImageView_->setHidden(true);
      activityIndicatorView_->setHidden(false);
      activityIndicatorView_->startAnimating();
      break;
    case LoadingType::spinner:
      activityIndicatorView_->stopAnimating();
      activityIndicatorView_->setHidden(true);
      spinnerImageView_->setHidden(false);
      spinnerImageView_->setImage(loadSpinnerImage());
      break;
  }
}

void KivLoadingView::show(const std::shared_ptr<View>& hostView) {
  KIV_ASSERT_MAIN_THREAD();
  view_->setFrame(hostView->bounds());
  hostView->addSubview(view_);
  startLoading();
}

void KivLoadingView::startLoading() {
  runOnMain([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    self->view_->setUserInteractionEnabled(false);
    self->view_->setHidden(false);
    if (self->loadingType_ == LoadingType::activityIndicator) {
      self->activityIndicatorView_->startAnimating();
    } else {
      self->startRotation();
    }
  });
}

void KivLoadingView::stopLoading() {
  runOnMain([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    self->view_->setUserInteractionEnabled(true);
    self->view_->setHidden(true);
    if (self->loadingType_ == LoadingType::activityIndicator) {
      self->activityIndicatorView_->stopAnimating();
    } else {
      self->stopRotation();
    }
  });
}

void KivLoadingView::startRotation() {
  auto& layer = spinnerImageView_->layer();
  if (layer.animation(kSpinAnimationKey)) return;
  layer.addAnimation(spinAnimation(), std::string(kSpinAnimationKey));
}

void KivLoadingView::stopRotation() { spinnerImageView_->layer().removeAnimation(kSpinAnimationKey); }

}  // namespace kiv
