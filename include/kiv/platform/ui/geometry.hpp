// Points, sizes and rectangles in the toolkit's points (not pixels).
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

namespace kiv {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  Point origin;
  Size size;

  static Rect make(double x, double y, double width, double height) { return Rect{{x, y}, {width, height}}; }
  double midX() const { return origin.x + size.width / 2; }
  double midY() const { return origin.y + size.height / 2; }
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace kiv

#pragma GCC visibility pop
