// A view's layer, reduced to what the SDK uses: animations stored by key.
//
//   BasicAnimation spin{.keyPath = "transform.rotation.z", .toValue = 2 * M_PI, .duration = 1.0,
//                       .repeatCount = BasicAnimation::kRepeatForever};
//   view->layer().addAnimation(spin, "spin");
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

enum class TimingFunction { linear, easeIn, easeOut, easeInEaseOut };

// An animation of one numeric property from one value to another.
struct BasicAnimation {
  static constexpr double kRepeatForever = std::numeric_limits<double>::infinity();

  std::string keyPath;
  double fromValue = 0;
  double toValue = 0;
  double duration = 0;     // seconds per repetition
  double repeatCount = 0;  // 0 plays once; kRepeatForever never ends
  TimingFunction timingFunction = TimingFunction::linear;
  bool isRemovedOnCompletion = true;

  friend bool operator==(const BasicAnimation&, const BasicAnimation&) = default;
};

// Main thread only.
class Layer {
 public:
  virtual ~Layer() = default;
  // Stores `animation` under `key`, replacing what was there.
  virtual void addAnimation(const BasicAnimation& animation, const std::string& key) = 0;
  virtual std::optional<BasicAnimation> animation(std::string_view key) const = 0;
  // Harmless when nothing is stored under `key`.
  virtual void removeAnimation(std::string_view key) = 0;
  // In the order they were added.
  virtual std::vector<std::string> animationKeys() const = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
