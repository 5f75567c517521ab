#include "kiv/platform/capture/options.hpp"

namespace kiv {

Options::Options()
    : filter(LineDrawingFilter{LineDrawingFilter::Style::classic, Color::white(0.2, 1.0), Color::white(1.0, 1.0)}),
      surroundColor(Color::white(0.0, 0.4)),
      titleTextColor(Color::white(1.0, 1.0)),
      headerBackgroundColor(Color::clear()),
      closeButtonTintColor(Color::white(1.0, 1.0)),
      promptTextColor(Color::white(1.0, 1.0)),
      promptBackgroundColor(Color::white(0.0, 0.8)) {}

}  // namespace kiv
