#include <gtest/gtest.h>

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

// While loading the overlay covers the host and takes its touches; stopped,
// it stays in place, hidden, and lets them through.
TEST_F(LoadingViewTest, IndicatorStyleCoversTheHostWhileLoading) {
  loading_->show(host_);
  const auto& overlay = loading_->view();
  ASSERT_EQ(overlay->superview(), host_);
  EXPECT_EQ(overlay->frame(), host_->bounds());
  EXPECT_FALSE(overlay->isHidden());
  EXPECT_FALSE(overlay->isUserInteractionEnabled());
  EXPECT_TRUE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_TRUE(loading_->spinnerImageView()->isHidden());

  loading_->stopLoading();
  EXPECT_FALSE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_TRUE(overlay->isHidden());
  EXPECT_TRUE(overlay->isUserInteractionEnabled());
  EXPECT_EQ(overlay->superview(), host_);
  loading_->startLoading();
  EXPECT_TRUE(loading_->activityIndicatorView()->isAnimating());
  EXPECT_TRUE(loading_->spinnerImageView()->layer().animationKeys().empty());
}

// The spinner is the first frame of the shipped WebP, turned while loading.
// Calls from other threads apply on the main queue, and not once the view is
// gone.
TEST_F(LoadingViewTest, SpinnerTurnsWhileLoadingAndOtherThreadsGoThroughTheMainQueue) {
  loading_->setLoadingType(LoadingType::spinner);
  EXPECT_TRUE(loading_->activityIndicatorView()->isHidden());
  EXPECT_FALSE(loading_->activityIndicatorView()->isAnimating());
  ASSERT_TRUE(loading_->spinnerImageView()->image());
  EXPECT_EQ(loading_->spinnerImageView()->image()->width(), 64);
  loading_->show(host_);
  auto& layer = loading_->spinnerImageView()->layer();
  EXPECT_EQ(layer.animationKeys(), std::vector<std::string>{"spin"});

  fromAnotherThread(&KivLoadingView::stopLoading);
  EXPECT_FALSE(loading_->view()->isHidden());  // not yet: it waits for the main queue
  loop().runUntilIdle();
  EXPECT_TRUE(loading_->view()->isHidden());
  EXPECT_TRUE(layer.animationKeys().empty());

  fromAnotherThread(&KivLoadingView::startLoading);
  fromAnotherThread(&KivLoadingView::startLoading);
  loop().runUntilIdle();
  EXPECT_FALSE(loading_->view()->isHidden());
  EXPECT_EQ(layer.animationKeys(), std::vector<std::string>{"spin"});

  fromAnotherThread(&KivLoadingView::stopLoading);
  std::weak_ptr<KivLoadingView> weak = loading_;
  loading_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(loop().runUntilIdle(), 1u);
}

}  // namespace
}  // namespace kiv
