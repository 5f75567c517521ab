// Drawing the capture vendor's screen (see kiv/platform/gtk/capture_screen.hpp):
// a pure function of the options, what the capture reported last and the
// time, so that a screenshot of one state comes out the same every time.
#pragma once

#include <cairo.h>

#include <string>

#include "kiv/platform/capture/options.hpp"

namespace kiv::gtk {

struct CaptureScreenState {
  enum class Phase { starting, connecting, connected, processing, success, failure, canceled, error };
  Phase phase = Phase::starting;
  double progress = 0;  // while processing, 0...1
  std::string detail;   // a failure's first reason, an error's description
};

// The height of the app bar, in points; the close button sits in it.
inline constexpr double kAppBarHeight = 56;
inline constexpr double kCloseButtonSide = 40;

// Draws the whole screen but the close button, `seconds` into the capture,
// over the camera's `picture` (mirrored, as a person expects to see
// themselves) or, without one, a moving test pattern.
void drawCaptureScreen(cairo_t* cr, int width, int height, const Options& options, const CaptureScreenState& state,
                       double seconds, cairo_surface_t* picture = nullptr);
// Draws the close button's glyph (the options' image, or a cross) in its tint.
void drawCloseGlyph(cairo_t* cr, int width, int height, const Options& options);

}  // namespace kiv::gtk
