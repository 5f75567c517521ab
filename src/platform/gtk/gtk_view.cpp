#include "platform/gtk/gtk_view.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "platform/dispatch/main_affinity.hpp"

// --- KivViewWidget: a widget with no size of its own that lets its peer
// place its children and draw under them.

struct KivViewWidget {
  GtkWidget parent_instance;
  kiv::gtk::WidgetPeer* peer;
};
struct KivViewWidgetClass {
  GtkWidgetClass parent_class;
};

G_DEFINE_TYPE(KivViewWidget, kiv_view_widget, GTK_TYPE_WIDGET)

namespace {

KivViewWidget* asViewWidget(GtkWidget* widget) {
  return G_TYPE_CHECK_INSTANCE_TYPE(widget, kiv_view_widget_get_type()) ? reinterpret_cast<KivViewWidget*>(widget)
                                                                        : nullptr;
}

void viewWidgetMeasure(GtkWidget*, GtkOrientation, int, int* minimum, int* natural, int* minimumBaseline,
                       int* naturalBaseline) {
  // Frames are set by hand, as on a phone: the widget asks for nothing.
  *minimum = *natural = 0;
  *minimumBaseline = *naturalBaseline = -1;
}

void viewWidgetAllocate(GtkWidget* widget, int width, int height, int) {
  if (auto* peer = asViewWidget(widget)->peer) peer->allocate(width, height);
}

void viewWidgetSnapshot(GtkWidget* widget, GtkSnapshot* snapshot) {
  if (auto* peer = asViewWidget(widget)->peer) {
    peer->snapshotContent(snapshot, gtk_widget_get_width(widget), gtk_widget_get_height(widget));
  }
  GTK_WIDGET_CLASS(kiv_view_widget_parent_class)->snapshot(widget, snapshot);  // the children, in order
}

void viewWidgetDispose(GObject* object) {
  auto* widget = GTK_WIDGET(object);
  while (GtkWidget* child = gtk_widget_get_first_child(widget)) gtk_widget_unparent(child);
  G_OBJECT_CLASS(kiv_view_widget_parent_class)->dispose(object);
}

}  // namespace

static void kiv_view_widget_class_init(KivViewWidgetClass* klass) {
  auto* widgetClass = GTK_WIDGET_CLASS(klass);
  widgetClass->measure = viewWidgetMeasure;
  widgetClass->size_allocate = viewWidgetAllocate;
  widgetClass->snapshot = viewWidgetSnapshot;
  G_OBJECT_CLASS(klass)->dispose = viewWidgetDispose;
}

static void kiv_view_widget_init(KivViewWidget* self) { self->peer = nullptr; }

namespace kiv::gtk {
namespace {

constexpr std::string_view kRotationKeyPath = "transform.rotation.z";
constexpr std::string_view kOpacityKeyPath = "opacity";

// The phone toolkit's indicator diameters, as the headless toolkit's.
constexpr Size kLargeIndicatorSize{37, 37};
constexpr Size kMediumIndicatorSize{20, 20};

Size pointSize(const ImageRef& image) {
  if (!image) return {};
  const double scale = image->scale() > 0 ? image->scale() : 1.0;
  return {image->width() / scale, image->height() / scale};
}

GdkRGBA rgba(const Color& color) {
  return GdkRGBA{static_cast<float>(color.red()), static_cast<float>(color.green()), static_cast<float>(color.blue()),
                 static_cast<float>(color.alpha())};
}

// Where an image of `image` points lands in `width` x `height`.
graphene_rect_t placeImage(ContentMode mode, Size image, int width, int height) {
  const auto w = static_cast<float>(width), h = static_cast<float>(height);
  if (image.width <= 0 || image.height <= 0) return GRAPHENE_RECT_INIT(0, 0, 0, 0);
  const auto iw = static_cast<float>(image.width), ih = static_cast<float>(image.height);
  switch (mode) {
    case ContentMode::scaleToFill:
      return GRAPHENE_RECT_INIT(0, 0, w, h);
    case ContentMode::scaleAspectFit:
    case ContentMode::scaleAspectFill: {
      const float fit = std::min(w / iw, h / ih), fill = std::max(w / iw, h / ih);
      const float scale = mode == ContentMode::scaleAspectFit ? fit : fill;
      return GRAPHENE_RECT_INIT((w - iw * scale) / 2, (h - ih * scale) / 2, iw * scale, ih * scale);
    }
    case ContentMode::center:
      return GRAPHENE_RECT_INIT((w - iw) / 2, (h - ih) / 2, iw, ih);
  }
  return GRAPHENE_RECT_INIT(0, 0, w, h);
}

// The value of `animation` `elapsed` seconds after it was added.
double animatedValue(const BasicAnimation& animation, double elapsed) {
  if (animation.duration <= 0) return animation.toValue;
  const double cycles = elapsed / animation.duration;
  const double repeats = animation.repeatCount > 0 ? animation.repeatCount : 1;
  if (cycles >= repeats) return animation.toValue;
  double t = cycles - std::floor(cycles);
  switch (animation.timingFunction) {
    case TimingFunction::linear:
      break;
    case TimingFunction::easeIn:
      t = t * t;
      break;
    case TimingFunction::easeOut:
      t = 1 - (1 - t) * (1 - t);
      break;
    case TimingFunction::easeInEaseOut:
      t = t * t * (3 - 2 * t);
      break;
  }
  return animation.fromValue + (animation.toValue - animation.fromValue) * t;
}

}  // namespace

double AnimationClock::now() const {
  return frozen_ ? 0.0 : static_cast<double>(g_get_monotonic_time()) / G_USEC_PER_SEC;
}

GtkWidget* makeViewWidget(WidgetPeer* peer) {
  auto* widget = static_cast<KivViewWidget*>(g_object_new(kiv_view_widget_get_type(), nullptr));
  widget->peer = peer;
  return GTK_WIDGET(widget);
}

WidgetPeer* peerOf(GtkWidget* widget) {
  auto* view = widget ? asViewWidget(widget) : nullptr;
  return view ? view->peer : nullptr;
}

void detachPeer(GtkWidget* widget) {
  if (auto* view = asViewWidget(widget)) view->peer = nullptr;
}

GtkViewPart* gtkPart(View* view) { return dynamic_cast<GtkViewPart*>(view); }

// --- GtkLayer

void GtkLayer::addAnimation(const BasicAnimation& animation, const std::string& key) {
  stored_.addAnimation(animation, key);
  begins_[key] = clock_->now();
  changed_();
}

std::optional<BasicAnimation> GtkLayer::animation(std::string_view key) const { return stored_.animation(key); }

void GtkLayer::removeAnimation(std::string_view key) {
  stored_.removeAnimation(key);
  if (auto found = begins_.find(key); found != begins_.end()) begins_.erase(found);
  changed_();
}

std::vector<std::string> GtkLayer::animationKeys() const { return stored_.animationKeys(); }

bool GtkLayer::removeFinished() {
  std::vector<std::string> finished;
  for (const auto& [key, begin] : begins_) {
    auto animation = stored_.animation(key);
    if (!animation || !animation->isRemovedOnCompletion || animation->duration <= 0) continue;
    const double repeats = animation->repeatCount > 0 ? animation->repeatCount : 1;
    if (clock_->now() - begin >= animation->duration * repeats) finished.push_back(key);
  }
  for (const auto& key : finished) {
    stored_.removeAnimation(key);
    begins_.erase(key);
  }
  return !finished.empty();
}

std::optional<double> GtkLayer::value(std::string_view keyPath) const {
  // The animation added last wins, as the later one would on a phone.
  std::optional<double> value;
  for (const auto& key : stored_.animationKeys()) {
    auto animation = stored_.animation(key);
    auto begin = begins_.find(key);
    if (!animation || animation->keyPath != keyPath || begin == begins_.end()) continue;
    const double elapsed = clock_->now() - begin->second;
    const double repeats = animation->repeatCount > 0 ? animation->repeatCount : 1;
    if (animation->isRemovedOnCompletion && animation->duration > 0 && elapsed >= animation->duration * repeats) {
      continue;
    }
    value = animatedValue(*animation, elapsed);
  }
  return value;
}

// --- GtkViewPart

GtkViewPart::GtkViewPart(View& self, HeadlessLayer& stored, std::shared_ptr<const AnimationClock> clock)
    : self_(self),
      clock_(std::move(clock)),
      gtkLayer_(stored, clock_,
                [this] {
                  startTicking();
                  relayout();
                }),
      widget_(GTK_WIDGET(g_object_ref_sink(makeViewWidget(this)))) {}

GtkViewPart::~GtkViewPart() {
  detachPeer(widget_);
  if (tick_) gtk_widget_remove_tick_callback(widget_, tick_);
  while (GtkWidget* child = gtk_widget_get_first_child(widget_)) gtk_widget_unparent(child);
  if (gtk_widget_get_parent(widget_)) gtk_widget_unparent(widget_);
  g_object_unref(widget_);
}

void GtkViewPart::setContent(GtkWidget* content) {
  KIV_ASSERT_MAIN_THREAD();
  if (content_ == content) return;
  if (content_) gtk_widget_unparent(content_);
  content_ = content;
  if (content_) gtk_widget_insert_after(content_, widget_, nullptr);  // first: under every subview
  gtk_widget_queue_allocate(widget_);
}

void GtkViewPart::allocate(int width, int height) {
  if (content_) gtk_widget_allocate(content_, width, height, -1, nullptr);
  for (const auto& subview : self_.subviews()) {
    auto* part = gtkPart(subview.get());
    if (!part || !gtk_widget_get_visible(part->widget_)) continue;
    const Rect frame = subview->frame();
    const auto w = static_cast<float>(frame.size.width), h = static_cast<float>(frame.size.height);
    GskTransform* transform = nullptr;
    auto point = GRAPHENE_POINT_INIT(static_cast<float>(frame.origin.x), static_cast<float>(frame.origin.y));
    transform = gsk_transform_translate(transform, &point);
    if (auto angle = part->gtkLayer_.value(kRotationKeyPath)) {
      // About the centre, as a layer turns about its anchor point.
      auto centre = GRAPHENE_POINT_INIT(w / 2, h / 2), back = GRAPHENE_POINT_INIT(-w / 2, -h / 2);
      transform = gsk_transform_translate(transform, &centre);
      transform = gsk_transform_rotate(transform, static_cast<float>(*angle * 180 / std::numbers::pi));
      transform = gsk_transform_translate(transform, &back);
    }
    if (auto opacity = part->gtkLayer_.value(kOpacityKeyPath)) gtk_widget_set_opacity(part->widget_, *opacity);
    gtk_widget_allocate(part->widget_, static_cast<int>(std::lround(w)), static_cast<int>(std::lround(h)), -1,
                        transform);
  }
}

void GtkViewPart::snapshotContent(GtkSnapshot* snapshot, int width, int height) {
  drawContent(snapshot, width, height);
}

void GtkViewPart::relayout() {
  // Centred subviews may have moved with this one: every widget below is
  // placed again, and this one by its parent.
  gtk_widget_queue_allocate(widget_);
  gtk_widget_queue_draw(widget_);
  if (GtkWidget* parent = gtk_widget_get_parent(widget_)) gtk_widget_queue_allocate(parent);
  for (const auto& subview : self_.subviews()) {
    if (auto* part = gtkPart(subview.get())) part->relayout();
  }
}

void GtkViewPart::adopt(const std::shared_ptr<View>& subview) {
  auto* part = gtkPart(subview.get());
  if (!part || subview->superview().get() != &self_) return;
  GtkWidget* child = part->widget_;
  if (gtk_widget_get_parent(child)) gtk_widget_unparent(child);
  gtk_widget_insert_before(child, widget_, nullptr);  // last: on top
  part->relayout();
}

void GtkViewPart::orphan(bool hadSuperview) {
  if (hadSuperview && gtk_widget_get_parent(widget_)) gtk_widget_unparent(widget_);
}

void GtkViewPart::startTicking() {
  if (tick_ || clock_->frozen() || !moving()) return;
  tick_ = gtk_widget_add_tick_callback(
      widget_,
      [](GtkWidget*, GdkFrameClock*, gpointer data) -> gboolean {
        auto* self = static_cast<GtkViewPart*>(data);
        self->gtkLayer_.removeFinished();
        if (!self->moving()) {
          self->tick_ = 0;
          return G_SOURCE_REMOVE;
        }
        self->relayout();
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
}

// --- GtkViewBase

template <class I>
void GtkViewBase<I>::setFrame(Rect frame) {
  const bool changed = frame != this->frame();
  HeadlessViewBase<I>::setFrame(frame);
  // Only a change lays out again: a window that sets the frames it already
  // has while it places its children must not ask for another pass.
  if (changed) relayout();
}

template <class I>
void GtkViewBase<I>::addSubview(std::shared_ptr<View> subview) {
  HeadlessViewBase<I>::addSubview(subview);
  if (subview) adopt(subview);
}

template <class I>
void GtkViewBase<I>::removeFromSuperview() {
  auto keepAlive = this->shared_from_this();
  const bool hadSuperview = this->superview() != nullptr;
  HeadlessViewBase<I>::removeFromSuperview();
  orphan(hadSuperview);
}

template <class I>
void GtkViewBase<I>::setHidden(bool hidden) {
  HeadlessViewBase<I>::setHidden(hidden);
  gtk_widget_set_visible(widget_, !hidden);
}

template <class I>
void GtkViewBase<I>::setUserInteractionEnabled(bool enabled) {
  HeadlessViewBase<I>::setUserInteractionEnabled(enabled);
  // Events pass through to what lies below, as touches do on a phone.
  gtk_widget_set_can_target(widget_, enabled);
}

template <class I>
void GtkViewBase<I>::setBackgroundColor(ColorRef color) {
  HeadlessViewBase<I>::setBackgroundColor(std::move(color));
  gtk_widget_queue_draw(widget_);
}

template <class I>
void GtkViewBase<I>::snapshotContent(GtkSnapshot* snapshot, int width, int height) {
  if (const auto& color = this->backgroundColor_) {
    const GdkRGBA fill = rgba(*color);
    auto bounds = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
    gtk_snapshot_append_color(snapshot, &fill, &bounds);
  }
  drawContent(snapshot, width, height);
}

template class GtkViewBase<View>;
template class GtkViewBase<ImageView>;
template class GtkViewBase<ActivityIndicatorView>;

// --- GtkPlainView

GtkPlainView::GtkPlainView(Rect frame, std::shared_ptr<const AnimationClock> clock) : GtkViewBase(std::move(clock)) {
  frame_ = frame;
}

// --- GtkImageView

GtkImageView::GtkImageView(ImageRef image, std::shared_ptr<const AnimationClock> clock)
    : GtkViewBase(std::move(clock)), image_(std::move(image)) {
  frame_ = Rect{{0, 0}, pointSize(image_)};
  startTicking();
}

GtkImageView::~GtkImageView() { dropTextures(); }

std::optional<Size> GtkImageView::intrinsicContentSize() const { return pointSize(image_); }

ImageRef GtkImageView::image() const {
  KIV_ASSERT_MAIN_THREAD();
  return image_;
}

void GtkImageView::setImage(ImageRef image) {
  KIV_ASSERT_MAIN_THREAD();
  image_ = std::move(image);
  dropTextures();
  HeadlessViewTree::layout(*this);  // a centred view without a fixed size follows its image
  relayout();
  startTicking();
}

ContentMode GtkImageView::contentMode() const {
  KIV_ASSERT_MAIN_THREAD();
  return contentMode_;
}

void GtkImageView::setContentMode(ContentMode mode) {
  KIV_ASSERT_MAIN_THREAD();
  contentMode_ = mode;
  gtk_widget_queue_draw(widget_);
}

bool GtkImageView::moving() const { return GtkViewPart::moving() || (image_ && image_->isAnimated()); }

void GtkImageView::dropTextures() {
  for (auto* texture : textures_) {
    if (texture) g_object_unref(texture);
  }
  textures_.clear();
}

void GtkImageView::drawContent(GtkSnapshot* snapshot, int width, int height) {
  if (!image_) return;
  // An animation shows each frame for duration / frame count, from the
  // clock's start.
  std::size_t index = 0;
  const ImageRef* frame = &image_;
  if (image_->isAnimated()) {
    const auto& frames = image_->frames();
    const double perFrame = image_->duration() / static_cast<double>(frames.size());
    if (perFrame > 0) {
      index = static_cast<std::size_t>(std::fmod(clock_->now(), image_->duration()) / perFrame) % frames.size();
    }
    frame = &frames[index];
  }
  if (textures_.size() <= index) textures_.resize(index + 1, nullptr);
  if (!textures_[index]) {
    const auto& still = **frame;
    auto pixels = still.rgba();
    GBytes* bytes = g_bytes_new(pixels.data(), pixels.size());
    textures_[index] = gdk_memory_texture_new(still.width(), still.height(), GDK_MEMORY_R8G8B8A8, bytes,
                                              static_cast<gsize>(still.width()) * 4);
    g_bytes_unref(bytes);
  }
  auto target = placeImage(contentMode_, pointSize(image_), width, height);
  auto bounds = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  gtk_snapshot_push_clip(snapshot, &bounds);
  gtk_snapshot_append_texture(snapshot, textures_[index], &target);
  gtk_snapshot_pop(snapshot);
}

// --- GtkActivityIndicatorView

GtkActivityIndicatorView::GtkActivityIndicatorView(ActivityIndicatorStyle style,
                                                   std::shared_ptr<const AnimationClock> clock)
    : GtkViewBase(std::move(clock)), style_(style) {
  frame_ = Rect{{0, 0}, *GtkActivityIndicatorView::intrinsicContentSize()};
}

std::optional<Size> GtkActivityIndicatorView::intrinsicContentSize() const {
  return style_ == ActivityIndicatorStyle::large ? kLargeIndicatorSize : kMediumIndicatorSize;
}

void GtkActivityIndicatorView::startAnimating() {
  KIV_ASSERT_MAIN_THREAD();
  if (animating_) return;
  animating_ = true;
  startedAt_ = clock_->now();
  startTicking();
}

void GtkActivityIndicatorView::stopAnimating() {
  KIV_ASSERT_MAIN_THREAD();
  animating_ = false;
  gtk_widget_queue_draw(widget_);
}

bool GtkActivityIndicatorView::moving() const { return GtkViewPart::moving() || animating_; }

void GtkActivityIndicatorView::drawContent(GtkSnapshot* snapshot, int width, int height) {
  // The phone's indicator: twelve spokes fading behind a bright one that
  // steps around once a second.
  constexpr int kSpokes = 12;
  const double side = std::min(width, height);
  if (side <= 0) return;
  auto bounds = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  cairo_t* cr = gtk_snapshot_append_cairo(snapshot, &bounds);
  const int lead = animating_ ? static_cast<int>(std::floor((clock_->now() - startedAt_) * kSpokes)) % kSpokes : 0;
  const double inner = side * 0.22, outer = side * 0.48;
  cairo_translate(cr, width / 2.0, height / 2.0);
  cairo_set_line_width(cr, side * 0.09);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  for (int i = 0; i < kSpokes; ++i) {
    const int behind = (lead - i + kSpokes) % kSpokes;
    const double angle = 2 * std::numbers::pi * i / kSpokes - std::numbers::pi / 2;
    cairo_set_source_rgba(cr, 0.6, 0.6, 0.6, 1.0 - 0.07 * behind);
    cairo_move_to(cr, inner * std::cos(angle), inner * std::sin(angle));
    cairo_line_to(cr, outer * std::cos(angle), outer * std::sin(angle));
    cairo_stroke(cr);
  }
  cairo_destroy(cr);
}

}  // namespace kiv::gtk
