// Colours as the toolkit and the customization records see them: immutable
// objects with red, green, blue and alpha components in 0...1, shared by
// reference (ColorRef), as a phone toolkit's colour objects are. A host
// bridging its own toolkit converts at the edge.
//
//   ColorRef dim = Color::white(0.0, 0.3);
//   ColorRef ink = Color::rgba(64 / 255.0, 64 / 255.0, 64 / 255.0, 1.0);
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>

namespace kiv {

class Color;
using ColorRef = std::shared_ptr<const Color>;

class Color {
 public:
  // Components are kept as given; nothing is clamped.
  static ColorRef rgba(double red, double green, double blue, double alpha);
  // A grey: red = green = blue = `level`.
  static ColorRef white(double level, double alpha);
  // Fully transparent black.
  static ColorRef clear();

  double red() const { return red_; }
  double green() const { return green_; }
  double blue() const { return blue_; }
  double alpha() const { return alpha_; }

  // Same components (not the same object).
  friend bool operator==(const Color&, const Color&) = default;

 private:
  Color(double red, double green, double blue, double alpha) : red_(red), green_(green), blue_(blue), alpha_(alpha) {}
  double red_;
  double green_;
  double blue_;
  double alpha_;
};

}  // namespace kiv

#pragma GCC visibility pop
