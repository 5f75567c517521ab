// The headless toolkit's views: the whole view tree in memory, nothing drawn.
// Layers store their animations and never run them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kiv/platform/ui/view.hpp"

namespace kiv {

class HeadlessLayer final : public Layer {
 public:
  void addAnimation(const BasicAnimation& animation, const std::string& key) override;
  std::optional<BasicAnimation> animation(std::string_view key) const override;
  void removeAnimation(std::string_view key) override;
  std::vector<std::string> animationKeys() const override;

 private:
  std::vector<std::pair<std::string, BasicAnimation>> animations_;
};

// What every headless view keeps, whatever its kind. Views of another
// toolkit cannot join a headless tree: addSubview ignores them.
class HeadlessViewState {
 public:
  virtual ~HeadlessViewState() = default;

  // Called after a subview was added or removed, or hid or showed itself:
  // a view that stands for something outside the tree (a host's own
  // screen) learns what covers it. Nothing to do in memory.
  virtual void subviewsChanged() {}

 protected:
  friend class HeadlessViewTree;
  Rect frame_;
  std::vector<std::shared_ptr<View>> subviews_;
  std::weak_ptr<View> superview_;
  bool centered_ = false;
  std::optional<Size> centeredSize_;
  bool hidden_ = false;
  bool userInteractionEnabled_ = true;
  ColorRef backgroundColor_;
  HeadlessLayer layer_;
};

// The tree operations shared by every kind of headless view.
class HeadlessViewTree {
 public:
  static HeadlessViewState* state(View* view) { return dynamic_cast<HeadlessViewState*>(view); }
  static void setFrame(View& self, Rect frame);
  static void addSubview(View& self, std::shared_ptr<View> subview);
  static void removeFromSuperview(View& self);
  static std::shared_ptr<View> superview(const View& self);
  static std::vector<std::shared_ptr<View>> subviews(const View& self);
  static void centerInSuperview(View& self, std::optional<Size> size);
  // Places `view` in its superview when it is centred there.
  static void layout(View& view);
  // Tells the superview of `view`, if any, that its subviews changed.
  static void tellSuperview(View& view);
};

// The View operations over HeadlessViewState, for any View interface.
template <class Interface>
class HeadlessViewBase : public Interface, public HeadlessViewState {
 public:
  Rect frame() const override;
  void setFrame(Rect frame) override;
  Rect bounds() const override;
  void addSubview(std::shared_ptr<View> subview) override;
  void removeFromSuperview() override;
  std::vector<std::shared_ptr<View>> subviews() const override;
  std::shared_ptr<View> superview() const override;
  void centerInSuperview(std::optional<Size> size) override;
  std::optional<Size> intrinsicContentSize() const override { return std::nullopt; }
  bool isHidden() const override;
  void setHidden(bool hidden) override;
  bool isUserInteractionEnabled() const override;
  void setUserInteractionEnabled(bool enabled) override;
  ColorRef backgroundColor() const override;
  void setBackgroundColor(ColorRef color) override;
  Layer& layer() override;
  const Layer& layer() const override;
};

class HeadlessView final : public HeadlessViewBase<View> {
 public:
  explicit HeadlessView(Rect frame) { frame_ = frame; }
};

class HeadlessImageView final : public HeadlessViewBase<ImageView> {
 public:
  explicit HeadlessImageView(ImageRef image);
  std::optional<Size> intrinsicContentSize() const override;
  ImageRef image() const override;
  void setImage(ImageRef image) override;
  ContentMode contentMode() const override;
  void setContentMode(ContentMode mode) override;

 private:
  ImageRef image_;
  ContentMode contentMode_ = ContentMode::scaleToFill;
};

class HeadlessActivityIndicatorView final : public HeadlessViewBase<ActivityIndicatorView> {
 public:
  explicit HeadlessActivityIndicatorView(ActivityIndicatorStyle style);
  std::optional<Size> intrinsicContentSize() const override;
  ActivityIndicatorStyle style() const override;
  bool isAnimating() const override;
  void startAnimating() override;
  void stopAnimating() override;

 private:
  ActivityIndicatorStyle style_;
  bool animating_ = false;
};

}  // namespace kiv
