#include "platform/view_toolkit_contract.hpp"

#include <cstdint>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace kiv::testing {
namespace {

TEST_P(ViewToolkitContract, SubviewsMoveBetweenSuperviewsAndCyclesAreRefused) {
  auto a = ui().makeView(Rect::make(0, 0, 100, 100));
  auto b = ui().makeView(Rect::make(0, 0, 100, 100));
  auto child = ui().makeView(Rect::make(10, 10, 20, 20));
  a->addSubview(child);
  b->addSubview(child);
  EXPECT_TRUE(a->subviews().empty());
  EXPECT_EQ(b->subviews(), std::vector<std::shared_ptr<View>>{child});
  EXPECT_EQ(child->superview(), b);
  harness().expectShown(*b);

  child->addSubview(b);  // b is child's ancestor
  child->addSubview(child);
  EXPECT_TRUE(child->subviews().empty());
  EXPECT_EQ(b->superview(), nullptr);

  std::weak_ptr<View> weakChild = child;
  child->removeFromSuperview();
  EXPECT_TRUE(b->subviews().empty());
  EXPECT_EQ(child->superview(), nullptr);
  harness().expectShown(*b);
  child.reset();
  EXPECT_TRUE(weakChild.expired());  // superviews own their subviews; nothing else kept it
}

TEST_P(ViewToolkitContract, CentredViewsFollowTheirSuperviewAndHiddenOnesAreNotShown) {
  auto root = ui().makeView(Rect::make(10, 20, 200, 100));
  auto fixed = ui().makeView(Rect{});
  fixed->centerInSuperview(Size{50, 40});  // before it has a superview: applies once added
  root->addSubview(fixed);
  EXPECT_EQ(fixed->frame(), Rect::make(75, 30, 50, 40));
  auto indicator = ui().makeActivityIndicator(ActivityIndicatorStyle::medium);
  auto image = ui().makeImageView(nullptr);
  root->addSubview(indicator);
  root->addSubview(image);
  indicator->centerInSuperview(std::nullopt);
  image->centerInSuperview(std::nullopt);
  EXPECT_EQ(indicator->frame(), Rect::make(90, 40, 20, 20));
  EXPECT_EQ(image->frame(), Rect::make(100, 50, 0, 0));
  image->setImage(Image::still(20, 10, std::vector<std::uint8_t>(20 * 10 * 4), 2.0));  // 10 x 5 points
  EXPECT_EQ(image->frame(), Rect::make(95, 47.5, 10, 5));

  root->setFrame(Rect::make(0, 0, 300, 200));
  EXPECT_EQ(fixed->frame(), Rect::make(125, 80, 50, 40));
  indicator->setHidden(true);
  EXPECT_TRUE(indicator->isHidden());
  harness().expectShown(*root);
}

TEST_P(ViewToolkitContract, LayersKeepOneAnimationPerKeyInTheOrderAdded) {
  auto view = ui().makeImageView(Image::still(2, 2, std::vector<std::uint8_t>(16)));
  auto root = ui().makeView(Rect::make(0, 0, 40, 40));
  root->addSubview(view);
  const BasicAnimation spin{.keyPath = "transform.rotation.z",
                            .toValue = 2 * std::numbers::pi,
                            .duration = 1.0,
                            .repeatCount = BasicAnimation::kRepeatForever,
                            .isRemovedOnCompletion = false};
  BasicAnimation fade{.keyPath = "opacity", .fromValue = 1, .toValue = 0, .duration = 0.5};
  view->layer().addAnimation(spin, "spin");
  view->layer().addAnimation(fade, "fade");
  fade.duration = 2;
  view->layer().addAnimation(fade, "fade");  // replaces, keeps its place
  EXPECT_EQ(view->layer().animationKeys(), (std::vector<std::string>{"spin", "fade"}));
  EXPECT_EQ(view->layer().animation("fade"), fade);
  harness().expectShown(*root);

  view->layer().removeAnimation("spin");
  view->layer().removeAnimation("nothing here");
  EXPECT_EQ(view->layer().animationKeys(), std::vector<std::string>{"fade"});
  EXPECT_EQ(view->layer().animation("spin"), std::nullopt);
}

}  // namespace
}  // namespace kiv::testing
