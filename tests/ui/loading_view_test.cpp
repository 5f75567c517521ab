#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "support/test_platform.hpp"
#include "ui/loading_view.hpp"

namespace kiv {
namespace {

class LoadingViewTest : public testing::PlatformTest {
 protected:
  void fromAnotherThread(void (KivLoadingView::*operation)()) {
    std::jthread([view = loading_, operation] { (view.get()->*operation)(); }).join();
  }

  std::shared_ptr<View> host_ = platform()->ui->makeView(Rect::make(0, 0, 390, 844));
  std::shared_ptr<KivLoadingView> loading_ = KivLoadingView::make();
};

TEST_F(LoadingViewTest, ShowCoversTheHostWithADimmedNonInteractiveOverlay) {
  loading_->show(host_);
  const auto& overlay = loading_->view();
  ASSERT_EQ(overlay->superview(), host_);
  EXPECT_EQ(overlay->frame(), host_->bounds());
  EXPECT_FALSE(overlay->isHidden());
  EXPECT_FALSE(overlay->isUserInteractionEnabled());
  ASSERT_TRUE(overlay->backgroundColor());
  EXPECT_EQ(*overlay->backgroundColor(), *Color::white(0.0, 0.3));

  // Both indicators sit in the middle; the spinner is 100 x 100.
  EXPECT_EQ(loading_->spinnerImageView()->frame(), Rect::make(145, 372, 100, 100));
  const Rect indicator = loading_->activityIndicatorView()->frame();
  EXPECT_EQ(std::pair(indicator.midX(), indicator.midY()), std::pair(195.0, 422.0));
  EXPECT_EQ(loading_->activityIndicatorView()->style(), ActivityIndicatorStyle::large);
}

TEST_F(LoadingViewTest, DefaultStyleAnimatesTheIndicatorAndNeverShowsTheSpinner) {
  loading_->show(host_);
  EXPECT_TRUE(loading_->activityIndicatorView()->isAnimating());
  loading_->stopLoading();
  EXPECT_FALSE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_TRUE(loading_->view()->isHidden());
  EXPECT_TRUE(loading_->view()->isUserInteractionEnabled());
  EXPECT_EQ(loading_->view()->superview(), host_);  // hidden, not removed

  loading_->startLoading();
  EXPECT_TRUE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_TRUE(loading_->spinnerImageView()->isHidden());
  EXPECT_TRUE(loading_->spinnerImageView()->layer().animationKeys().empty());
}

// The spinner is the first frame of the shipped WebP, turned once a second.
TEST_F(LoadingViewTest, SpinnerTurnsUnderOneSpinAnimation) {
  loading_->setLoadingType(LoadingType::spinner);
  EXPECT_TRUE(loading_->activityIndicatorView()->isHidden());
  EXPECT_FALSE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_FALSE(loading_->spinnerImageView()->isHidden());
  ASSERT_TRUE(loading_->spinnerImageView()->image());
  EXPECT_EQ(loading_->spinnerImageView()->image()->width(), 64);

  loading_->show(host_);
  loading_->startLoading();
  auto& layer = loading_->spinnerImageView()->layer();
  EXPECT_EQ(layer.animationKeys(), std::vector<std::string>{"spin"});
  const BasicAnimation expected{.keyPath = "transform.rotation.z",
                                .fromValue = 0,
                                .toValue = 6.283185307179586,
                                .duration = 1.0,
                                .repeatCount = BasicAnimation::kRepeatForever,
                                .timingFunction = TimingFunction::linear,
                                .isRemovedOnCompletion = false};
  EXPECT_EQ(layer.animation("spin"), expected);
  loading_->stopLoading();
  EXPECT_TRUE(layer.animationKeys().empty());
}

TEST_F(LoadingViewTest, StartAndStopFromAnotherThreadApplyOnTheMainThread) {
  loading_->setLoadingType(LoadingType::spinner);
  loading_->show(host_);

  fromAnotherThread(&KivLoadingView::stopLoading);
  EXPECT_FALSE(loading_->view()->isHidden());  // not yet: it waits for the main queue
  loop().runUntilIdle();
  EXPECT_TRUE(loading_->view()->isHidden());
  EXPECT_TRUE(loading_->spinnerImageView()->layer().animationKeys().empty());

  fromAnotherThread(&KivLoadingView::startLoading);
  fromAnotherThread(&KivLoadingView::startLoading);
  loop().runUntilIdle();
  EXPECT_FALSE(loading_->view()->isHidden());
  EXPECT_EQ(loading_->spinnerImageView()->layer().animationKeys().size(), 1u);

  // Posted calls find the view gone and do nothing.
  fromAnotherThread(&KivLoadingView::stopLoading);
  std::weak_ptr<KivLoadingView> weak = loading_;
  loading_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(loop().runUntilIdle(), 1u);
}

}  // namespace
}  // namespace kiv
