// The GTK toolkit's views. The tree itself (frames, subviews, centring,
// hidden, animations by key) is the headless toolkit's, so both toolkits
// keep the same rules; each view also owns one widget that draws it. A
// view's widget is a child of its superview's widget, after the superview's
// content widget (if any) and in subview order, so later subviews draw on
// top; the parent places each child at its frame, turned by its layer's
// rotation, on every layout pass.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ui/headless_view.hpp"

namespace kiv::gtk {

// Seconds for animations and moving pictures. Frozen, it stands at 0 for
// good, so every animation shows its first value and a screenshot comes out
// the same every time.
class AnimationClock {
 public:
  explicit AnimationClock(bool frozen) : frozen_(frozen) {}
  bool frozen() const { return frozen_; }
  double now() const;

 private:
  const bool frozen_;
};

// The clock of the installed GTK toolkit; null under another toolkit.
std::shared_ptr<const AnimationClock> animationClock();

// What a KivViewWidget asks of whoever it draws.
class WidgetPeer {
 public:
  virtual ~WidgetPeer() = default;
  // Places the widget's children inside `width` x `height`.
  virtual void allocate(int width, int height) = 0;
  // Draws under the children.
  virtual void snapshotContent(GtkSnapshot* snapshot, int width, int height) = 0;
};

// The one widget type behind every view; `peer` may be null once its view
// is gone.
GtkWidget* makeViewWidget(WidgetPeer* peer);
WidgetPeer* peerOf(GtkWidget* widget);
void detachPeer(GtkWidget* widget);

// A layer whose animations move the widget: "transform.rotation.z" turns it
// about its centre, "opacity" fades it; other key paths are stored only.
class GtkLayer final : public Layer {
 public:
  GtkLayer(HeadlessLayer& stored, std::shared_ptr<const AnimationClock> clock, std::function<void()> changed)
      : stored_(stored), clock_(std::move(clock)), changed_(std::move(changed)) {}

  void addAnimation(const BasicAnimation& animation, const std::string& key) override;
  std::optional<BasicAnimation> animation(std::string_view key) const override;
  void removeAnimation(std::string_view key) override;
  std::vector<std::string> animationKeys() const override;

  // The animated value of `keyPath` now, when an animation drives it.
  std::optional<double> value(std::string_view keyPath) const;
  bool animating() const { return !begins_.empty(); }
  // Removes the animations that ended and asked to be removed then, as a
  // phone's layer does. True when one was.
  bool removeFinished();

 private:
  HeadlessLayer& stored_;
  std::shared_ptr<const AnimationClock> clock_;
  std::function<void()> changed_;
  std::map<std::string, double, std::less<>> begins_;  // when each key's animation was added
};

// What every GTK view holds beside the headless state.
class GtkViewPart : public WidgetPeer {
 public:
  GtkWidget* widget() const { return widget_; }
  // A host's widget drawn under the subviews, filling the view; null
  // removes it.
  void setContent(GtkWidget* content);
  GtkWidget* content() const { return content_; }

 protected:
  GtkViewPart(View& self, HeadlessLayer& stored, std::shared_ptr<const AnimationClock> clock);
  ~GtkViewPart() override;

  void allocate(int width, int height) override;
  void snapshotContent(GtkSnapshot* snapshot, int width, int height) override;
  // What a kind of view draws over its background colour.
  virtual void drawContent(GtkSnapshot* /*snapshot*/, int /*width*/, int /*height*/) {}
  // True while something of this view moves with the clock.
  virtual bool moving() const { return gtkLayer_.animating(); }

  // Keeps the widgets in step with the tree.
  void relayout();
  void adopt(const std::shared_ptr<View>& subview);
  void orphan(bool hadSuperview);
  void startTicking();

  View& self_;
  std::shared_ptr<const AnimationClock> clock_;
  GtkLayer gtkLayer_;
  GtkWidget* widget_;
  GtkWidget* content_ = nullptr;
  guint tick_ = 0;
};

template <class Interface>
class GtkViewBase : public HeadlessViewBase<Interface>, public GtkViewPart {
 public:
  explicit GtkViewBase(std::shared_ptr<const AnimationClock> clock)
      : GtkViewPart(*this, HeadlessViewState::layer_, std::move(clock)) {}

  void setFrame(Rect frame) override;
  void addSubview(std::shared_ptr<View> subview) override;
  void removeFromSuperview() override;
  void setHidden(bool hidden) override;
  void setUserInteractionEnabled(bool enabled) override;
  void setBackgroundColor(ColorRef color) override;
  Layer& layer() override { return gtkLayer_; }
  const Layer& layer() const override { return gtkLayer_; }

 protected:
  void snapshotContent(GtkSnapshot* snapshot, int width, int height) override;
};

class GtkPlainView final : public GtkViewBase<View> {
 public:
  GtkPlainView(Rect frame, std::shared_ptr<const AnimationClock> clock);
};

class GtkImageView final : public GtkViewBase<ImageView> {
 public:
  GtkImageView(ImageRef image, std::shared_ptr<const AnimationClock> clock);
  ~GtkImageView() override;
  std::optional<Size> intrinsicContentSize() const override;
  ImageRef image() const override;
  void setImage(ImageRef image) override;
  ContentMode contentMode() const override;
  void setContentMode(ContentMode mode) override;

 private:
  void drawContent(GtkSnapshot* snapshot, int width, int height) override;
  bool moving() const override;
  void dropTextures();

  ImageRef image_;
  ContentMode contentMode_ = ContentMode::scaleToFill;
  std::vector<GdkTexture*> textures_;  // one per frame, made when first drawn
};

class GtkActivityIndicatorView final : public GtkViewBase<ActivityIndicatorView> {
 public:
  GtkActivityIndicatorView(ActivityIndicatorStyle style, std::shared_ptr<const AnimationClock> clock);
  std::optional<Size> intrinsicContentSize() const override;
  ActivityIndicatorStyle style() const override { return style_; }
  bool isAnimating() const override { return animating_; }
  void startAnimating() override;
  void stopAnimating() override;

 private:
  void drawContent(GtkSnapshot* snapshot, int width, int height) override;
  bool moving() const override;

  ActivityIndicatorStyle style_;
  bool animating_ = false;
  double startedAt_ = 0;
};

// The GTK part of a view made by the GTK toolkit; null for any other view.
GtkViewPart* gtkPart(View* view);

}  // namespace kiv::gtk
