#include "kiv/platform/ui/color.hpp"

namespace kiv {

// make_shared cannot reach the private constructor.
ColorRef Color::rgba(double red, double green, double blue, double alpha) {
  return ColorRef(new Color(red, green, blue, alpha));
}

ColorRef Color::white(double level, double alpha) { return rgba(level, level, level, alpha); }

ColorRef Color::clear() { return rgba(0, 0, 0, 0); }

}  // namespace kiv
