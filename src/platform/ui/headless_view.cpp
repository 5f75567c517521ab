#include "platform/ui/headless_view.hpp"

#include <algorithm>

#include "platform/dispatch/main_affinity.hpp"

namespace kiv {
namespace {

// The phone toolkit's indicator diameters, so layouts come out the same.
constexpr Size kLargeIndicatorSize{37, 37};
constexpr Size kMediumIndicatorSize{20, 20};

Size pointSize(const ImageRef& image) {
  if (!image) return {};
  const double scale = image->scale() > 0 ? image->scale() : 1.0;
  return {image->width() / scale, image->height() / scale};
}

}  // namespace

// --- HeadlessLayer

void HeadlessLayer::addAnimation(const BasicAnimation& animation, const std::string& key) {
  KIV_ASSERT_MAIN_THREAD();
  auto found = std::find_if(animations_.begin(), animations_.end(), [&](const auto& a) { return a.first == key; });
  if (found != animations_.end()) {
    found->second = animation;
  } else {
    animations_.emplace_back(key, animation);
  }
}

std::optional<BasicAnimation> HeadlessLayer::animation(std::string_view key) const {
  KIV_ASSERT_MAIN_THREAD();
  for (const auto& [k, a] : animations_) {
    if (k == key) return a;
  }
  return std::nullopt;
}

void HeadlessLayer::removeAnimation(std::string_view key) {
  KIV_ASSERT_MAIN_THREAD();
  std::erase_if(animations_, [&](const auto& a) { return a.first == key; });
}

std::vector<std::string> HeadlessLayer::animationKeys() const {
  KIV_ASSERT_MAIN_THREAD();
  std::vector<std::string> keys;
  for (const auto& entry : animations_) keys.push_back(entry.first);
  return keys;
}

// --- HeadlessViewTree

void HeadlessViewTree::setFrame(View& self, Rect frame) {
  auto* s = state(&self);
  s->frame_ = frame;
  for (const auto& child : s->subviews_) layout(*child);
}

void HeadlessViewTree::addSubview(View& self, std::shared_ptr<View> subview) {
  auto* child = subview ? state(subview.get()) : nullptr;
  if (!child) return;
  // Refuse cycles: the new subview may not be this view or one of its ancestors.
  for (std::shared_ptr<View> v = self.shared_from_this(); v; v = superview(*v)) {
    if (v == subview) return;
  }
  removeFromSuperview(*subview);
  child->superview_ = self.weak_from_this();
  state(&self)->subviews_.push_back(subview);
  layout(*subview);
  state(&self)->subviewsChanged();
}

void HeadlessViewTree::removeFromSuperview(View& self) {
  auto parent = superview(self);
  state(&self)->superview_.reset();
  if (!parent) return;
  std::erase_if(state(parent.get())->subviews_, [&](const auto& v) { return v.get() == &self; });
  state(parent.get())->subviewsChanged();
}

void HeadlessViewTree::tellSuperview(View& view) {
  if (auto parent = superview(view)) state(parent.get())->subviewsChanged();
}

std::shared_ptr<View> HeadlessViewTree::superview(const View& self) {
  return state(const_cast<View*>(&self))->superview_.lock();
}

std::vector<std::shared_ptr<View>> HeadlessViewTree::subviews(const View& self) {
  return state(const_cast<View*>(&self))->subviews_;
}

void HeadlessViewTree::centerInSuperview(View& self, std::optional<Size> size) {
  auto* s = state(&self);
  s->centered_ = true;
  s->centeredSize_ = size;
  layout(self);
}

void HeadlessViewTree::layout(View& view) {
  auto* s = state(&view);
  if (!s->centered_) return;
  auto parent = superview(view);
  if (!parent) return;
  const Size size = s->centeredSize_ ? *s->centeredSize_ : view.intrinsicContentSize().value_or(Size{});
  const Rect outer = parent->bounds();
  s->frame_ = Rect{{outer.midX() - size.width / 2, outer.midY() - size.height / 2}, size};
  for (const auto& child : s->subviews_) layout(*child);
}

// --- HeadlessViewBase

template <class I>
Rect HeadlessViewBase<I>::frame() const {
  KIV_ASSERT_MAIN_THREAD();
  return frame_;
}

template <class I>
void HeadlessViewBase<I>::setFrame(Rect frame) {
  KIV_ASSERT_MAIN_THREAD();
  HeadlessViewTree::setFrame(*this, frame);
}

template <class I>
Rect HeadlessViewBase<I>::bounds() const {
  KIV_ASSERT_MAIN_THREAD();
  return Rect{{0, 0}, frame_.size};
}

template <class I>
void HeadlessViewBase<I>::addSubview(std::shared_ptr<View> subview) {
  KIV_ASSERT_MAIN_THREAD();
  HeadlessViewTree::addSubview(*this, std::move(subview));
}

template <class I>
void HeadlessViewBase<I>::removeFromSuperview() {
  KIV_ASSERT_MAIN_THREAD();
  auto keepAlive = this->shared_from_this();  // the superview may hold the last reference
  HeadlessViewTree::removeFromSuperview(*this);
}

template <class I>
std::vector<std::shared_ptr<View>> HeadlessViewBase<I>::subviews() const {
  KIV_ASSERT_MAIN_THREAD();
  return subviews_;
}

template <class I>
std::shared_ptr<View> HeadlessViewBase<I>::superview() const {
  KIV_ASSERT_MAIN_THREAD();
  return superview_.lock();
}

template <class I>
void HeadlessViewBase<I>::centerInSuperview(std::optional<Size> size) {
  KIV_ASSERT_MAIN_THREAD();
  HeadlessViewTree::centerInSuperview(*this, size);
}

template <class I>
bool HeadlessViewBase<I>::isHidden() const {
  KIV_ASSERT_MAIN_THREAD();
  return hidden_;
}

template <class I>
void HeadlessViewBase<I>::setHidden(bool hidden) {
  KIV_ASSERT_MAIN_THREAD();
  if (hidden_ == hidden) return;
  hidden_ = hidden;
  HeadlessViewTree::tellSuperview(*this);
}

template <class I>
bool HeadlessViewBase<I>::isUserInteractionEnabled() const {
  KIV_ASSERT_MAIN_THREAD();
  return userInteractionEnabled_;
}

template <class I>
void HeadlessViewBase<I>::setUserInteractionEnabled(bool enabled) {
  KIV_ASSERT_MAIN_THREAD();
  userInteractionEnabled_ = enabled;
}

template <class I>
ColorRef HeadlessViewBase<I>::backgroundColor() const {
  KIV_ASSERT_MAIN_THREAD();
  return backgroundColor_;
}

template <class I>
void HeadlessViewBase<I>::setBackgroundColor(ColorRef color) {
  KIV_ASSERT_MAIN_THREAD();
  backgroundColor_ = std::move(color);
}

template <class I>
Layer& HeadlessViewBase<I>::layer() {
  return layer_;
}

template <class I>
const Layer& HeadlessViewBase<I>::layer() const {
  return layer_;
}

template class HeadlessViewBase<View>;
template class HeadlessViewBase<ImageView>;
template class HeadlessViewBase<ActivityIndicatorView>;

// --- HeadlessImageView

HeadlessImageView::HeadlessImageView(ImageRef image) : image_(std::move(image)) {
  frame_ = Rect{{0, 0}, pointSize(image_)};
}

std::optional<Size> HeadlessImageView::intrinsicContentSize() const {
  KIV_ASSERT_MAIN_THREAD();
  return pointSize(image_);
}

ImageRef HeadlessImageView::image() const {
  KIV_ASSERT_MAIN_THREAD();
  return image_;
}

void HeadlessImageView::setImage(ImageRef image) {
  KIV_ASSERT_MAIN_THREAD();
  image_ = std::move(image);
  HeadlessViewTree::layout(*this);  // a centred view without a fixed size follows its image
}

ContentMode HeadlessImageView::contentMode() const {
  KIV_ASSERT_MAIN_THREAD();
  return contentMode_;
}

void HeadlessImageView::setContentMode(ContentMode mode) {
  KIV_ASSERT_MAIN_THREAD();
  contentMode_ = mode;
}

// --- HeadlessActivityIndicatorView

HeadlessActivityIndicatorView::HeadlessActivityIndicatorView(ActivityIndicatorStyle style) : style_(style) {
  frame_ = Rect{{0, 0}, *HeadlessActivityIndicatorView::intrinsicContentSize()};
}

std::optional<Size> HeadlessActivityIndicatorView::intrinsicContentSize() const {
  return style_ == ActivityIndicatorStyle::large ? kLargeIndicatorSize : kMediumIndicatorSize;
}

ActivityIndicatorStyle HeadlessActivityIndicatorView::style() const {
  KIV_ASSERT_MAIN_THREAD();
  return style_;
}

bool HeadlessActivityIndicatorView::isAnimating() const {
  KIV_ASSERT_MAIN_THREAD();
  return animating_;
}

void HeadlessActivityIndicatorView::startAnimating() {
  KIV_ASSERT_MAIN_THREAD();
  animating_ = true;
}

void HeadlessActivityIndicatorView::stopAnimating() {
  KIV_ASSERT_MAIN_THREAD();
  animating_ = false;
}

}  // namespace kiv
