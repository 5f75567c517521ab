#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "platform/gtk/capture_screen.hpp"

namespace kiv::gtk {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTitleSize = 17;   // pixels
constexpr double kPromptSize = 16;  // pixels
constexpr double kPromptRadius = 14;
constexpr double kBlurFactor = 12;  // the picture is shrunk this much and blown up again
const Color kOvalLine = *Color::white(1.0, 0.9);
const Color kProgressLine = *Color::rgba(0.24, 0.81, 0.48, 1.0);
const Color kFailureLine = *Color::rgba(0.93, 0.33, 0.31, 1.0);

void setColor(cairo_t* cr, const Color& color) {
  cairo_set_source_rgba(cr, color.red(), color.green(), color.blue(), color.alpha());
}

// The oval the person puts their face in.
struct Oval {
  double cx, cy, rx, ry;
};

Oval ovalFor(int width, int height) {
  const double room = height - kAppBarHeight;
  double rx = width * 0.34, ry = rx * 1.3;
  ry = std::min(ry, room * 0.32);
  rx = std::min(rx, ry / 1.3);
  return Oval{width / 2.0, kAppBarHeight + room * 0.42, rx, ry};
}

void ovalPath(cairo_t* cr, const Oval& oval) {
  cairo_save(cr);
  cairo_translate(cr, oval.cx, oval.cy);
  cairo_scale(cr, oval.rx, oval.ry);
  cairo_new_sub_path(cr);
  cairo_arc(cr, 0, 0, 1, 0, 2 * kPi);
  cairo_close_path(cr);
  cairo_restore(cr);
}

void ellipsePath(cairo_t* cr, double cx, double cy, double rx, double ry, double from = 0, double to = 2 * kPi) {
  cairo_save(cr);
  cairo_translate(cr, cx, cy);
  cairo_scale(cr, rx, ry);
  cairo_new_sub_path(cr);
  cairo_arc(cr, 0, 0, 1, from, to);
  cairo_restore(cr);
}

// The camera's picture: a person in a room, gently moving, with light
// sliding across the wall behind. Drawn as it is (natural filter) or as
// lines of one colour over another (line-drawing filter).
void drawPicture(cairo_t* cr, int width, int height, const Options::Filter& filter, double t,
                 cairo_surface_t* picture) {
  if (picture) {
    // Scaled to cover the screen, centred, mirrored.
    const double pw = cairo_image_surface_get_width(picture), ph = cairo_image_surface_get_height(picture);
    const double scale = std::max(width / pw, height / ph);
    cairo_save(cr);
    cairo_translate(cr, width / 2.0, height / 2.0);
    cairo_scale(cr, -scale, scale);
    cairo_set_source_surface(cr, picture, -pw / 2, -ph / 2);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BILINEAR);
    cairo_paint(cr);
    cairo_restore(cr);
    return;
  }
  const auto* lines = std::get_if<Options::LineDrawingFilter>(&filter);
  const double w = width, h = height;
  const double sway = 6 * std::sin(t * 1.3), bob = 4 * std::sin(t * 0.9);
  const Oval oval = ovalFor(width, height);
  const double headX = oval.cx + sway, headY = oval.cy - oval.ry * 0.05 + bob;
  const double headRx = oval.rx * 0.62, headRy = oval.ry * 0.66;
  const double shoulderY = oval.cy + oval.ry * 1.05 + bob;

  if (lines) {
    setColor(cr, lines->backgroundColor ? *lines->backgroundColor : *Color::white(1, 1));
    cairo_paint(cr);
    setColor(cr, lines->foregroundColor ? *lines->foregroundColor : *Color::white(0.2, 1));
    cairo_set_line_width(cr, 2.5);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    // The window's light on the wall, as a few hatched strokes.
    const double shift = std::fmod(t * 18, 60.0);
    for (double x = -h + shift; x < w; x += 60) {
      cairo_move_to(cr, x, h * 0.7);
      cairo_line_to(cr, x + h * 0.35, kAppBarHeight);
    }
    cairo_stroke(cr);
    cairo_set_line_width(cr, 3);
  } else {
    cairo_pattern_t* wall = cairo_pattern_create_linear(0, 0, 0, h);
    cairo_pattern_add_color_stop_rgb(wall, 0, 0.86, 0.80, 0.72);
    cairo_pattern_add_color_stop_rgb(wall, 1, 0.52, 0.47, 0.42);
    cairo_set_source(cr, wall);
    cairo_paint(cr);
    cairo_pattern_destroy(wall);
    const double shift = std::fmod(t * 18, 60.0);
    cairo_set_source_rgba(cr, 1, 1, 0.92, 0.18);
    for (double x = -h + shift; x < w; x += 60) {
      cairo_move_to(cr, x, h * 0.7);
      cairo_line_to(cr, x + 24, h * 0.7);
      cairo_line_to(cr, x + 24 + h * 0.35, kAppBarHeight);
      cairo_line_to(cr, x + h * 0.35, kAppBarHeight);
      cairo_close_path(cr);
    }
    cairo_fill(cr);
  }

  // Shoulders, neck, head, hair, eyes, mouth.
  const Color paper = lines && lines->backgroundColor ? *lines->backgroundColor : *Color::white(1, 1);
  const Color ink = lines && lines->foregroundColor ? *lines->foregroundColor : *Color::white(0.2, 1);
  auto shape = [&](auto path, double r, double g, double b) {
    path();
    if (lines) {
      // Filled with the paper first, so that what lies behind is hidden.
      setColor(cr, paper);
      cairo_fill_preserve(cr);
      setColor(cr, ink);
      cairo_stroke(cr);
    } else {
      cairo_set_source_rgb(cr, r, g, b);
      cairo_fill(cr);
    }
  };
  shape([&] { ellipsePath(cr, headX, shoulderY + oval.ry * 0.55, oval.rx * 1.45, oval.ry * 0.75, kPi, 2 * kPi); }, 0.24,
        0.35, 0.50);
  shape(
      [&] {
        cairo_rectangle(cr, headX - headRx * 0.38, headY + headRy * 0.6, headRx * 0.76,
                        shoulderY - headY - headRy * 0.4);
      },
      0.80, 0.62, 0.48);
  shape([&] { ellipsePath(cr, headX, headY, headRx, headRy); }, 0.88, 0.71, 0.56);
  shape([&] { ellipsePath(cr, headX, headY - headRy * 0.55, headRx * 1.02, headRy * 0.5, kPi, 2 * kPi); }, 0.27, 0.2,
        0.15);
  for (int side : {-1, 1}) {
    shape([&] { ellipsePath(cr, headX + side * headRx * 0.38, headY - headRy * 0.05, headRx * 0.12, headRy * 0.06); },
          0.2, 0.15, 0.12);
  }
  if (!lines) cairo_set_source_rgb(cr, 0.55, 0.28, 0.25);
  cairo_set_line_width(cr, 3);
  ellipsePath(cr, headX, headY + headRy * 0.38, headRx * 0.3, headRy * 0.12, 0.15 * kPi, 0.85 * kPi);
  cairo_stroke(cr);
}

cairo_surface_t* surfaceOf(const Image& image) {
  const int w = image.width(), h = image.height();
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  const auto pixels = image.rgba();
  unsigned char* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < h; ++y) {
    auto* row = reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
    for (int x = 0; x < w; ++x) {
      const auto* p = &pixels[(static_cast<std::size_t>(y) * w + x) * 4];
      const unsigned a = p[3];
      auto pre = [a](unsigned c) { return (c * a + 127) / 255; };
      row[x] = (a << 24) | (pre(p[0]) << 16) | (pre(p[1]) << 8) | pre(p[2]);
    }
  }
  cairo_surface_mark_dirty(surface);
  return surface;
}

// Draws `image` aspect-fit in the square at x, y; in `tint` when given,
// keeping only the image's shape.
void drawImage(cairo_t* cr, const Image& image, double x, double y, double side, const Color* tint) {
  cairo_surface_t* surface = surfaceOf(image);
  const double scale = std::min(side / image.width(), side / image.height());
  cairo_save(cr);
  cairo_translate(cr, x + (side - image.width() * scale) / 2, y + (side - image.height() * scale) / 2);
  cairo_scale(cr, scale, scale);
  if (tint) {
    setColor(cr, *tint);
    cairo_mask_surface(cr, surface, 0, 0);
  } else {
    cairo_set_source_surface(cr, surface, 0, 0);
    cairo_paint(cr);
  }
  cairo_restore(cr);
  cairo_surface_destroy(surface);
}

PangoLayout* textLayout(cairo_t* cr, const Options& options, const std::string& text, double pixels, bool strong) {
  PangoLayout* layout = pango_cairo_create_layout(cr);
  PangoFontDescription* font = nullptr;
  if (options.font) {
    // The face the host named: its family, and its style ("Bold") when it
    // named one.
    const std::string name = options.font->name + (options.font->style ? " " + *options.font->style : "");
    font = pango_font_description_from_string(name.c_str());
    pango_font_description_set_family(font, options.font->name.c_str());
  } else {
    font = pango_font_description_from_string("Sans");
  }
  if (strong && !(options.font && options.font->style)) pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
  pango_font_description_set_absolute_size(font, pixels * PANGO_SCALE);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(layout, text.c_str(), -1);
  return layout;
}

std::string promptText(const CaptureScreenState& state) {
  using Phase = CaptureScreenState::Phase;
  switch (state.phase) {
    case Phase::starting:
      return "Getting ready…";
    case Phase::connecting:
      return "Connecting…";
    case Phase::connected:
      return "Put your face in the oval";
    case Phase::processing:
      return "Hold still… " + std::to_string(static_cast<int>(std::lround(state.progress * 100))) + "%";
    case Phase::success:
      return "Done";
    case Phase::failure:
      return state.detail.empty() ? "Please try again" : state.detail;
    case Phase::canceled:
      return "Cancelled";
    case Phase::error:
      return state.detail.empty() ? "Something went wrong" : state.detail;
  }
  return {};
}

void roundedRectangle(cairo_t* cr, double x, double y, double w, double h, double r) {
  cairo_new_sub_path(cr);
  cairo_arc(cr, x + w - r, y + r, r, -kPi / 2, 0);
  cairo_arc(cr, x + w - r, y + h - r, r, 0, kPi / 2);
  cairo_arc(cr, x + r, y + h - r, r, kPi / 2, kPi);
  cairo_arc(cr, x + r, y + r, r, kPi, 3 * kPi / 2);
  cairo_close_path(cr);
}

}  // namespace

void drawCaptureScreen(cairo_t* cr, int width, int height, const Options& options, const CaptureScreenState& state,
                       double seconds, cairo_surface_t* picture) {
  using Phase = CaptureScreenState::Phase;
  const Oval oval = ovalFor(width, height);
  drawPicture(cr, width, height, options.filter, seconds, picture);

  // Outside the oval: the picture blurred (shrunk and blown up again) unless
  // the exterior effects are off, then the surround colour.
  cairo_save(cr);
  cairo_rectangle(cr, 0, 0, width, height);
  ovalPath(cr, oval);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_clip(cr);
  if (!options.disableExteriorEffects) {
    const int sw = std::max(1, static_cast<int>(width / kBlurFactor)),
              sh = std::max(1, static_cast<int>(height / kBlurFactor));
    cairo_surface_t* small = cairo_image_surface_create(CAIRO_FORMAT_RGB24, sw, sh);
    cairo_t* scr = cairo_create(small);
    cairo_scale(scr, 1 / kBlurFactor, 1 / kBlurFactor);
    drawPicture(scr, width, height, options.filter, seconds, picture);
    cairo_destroy(scr);
    cairo_save(cr);
    cairo_scale(cr, kBlurFactor, kBlurFactor);
    cairo_set_source_surface(cr, small, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BILINEAR);
    cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
    cairo_paint(cr);
    cairo_restore(cr);
    cairo_surface_destroy(small);
  }
  if (options.surroundColor) {
    setColor(cr, *options.surroundColor);
    cairo_paint(cr);
  }
  cairo_restore(cr);

  // The oval's line, and the progress along it.
  cairo_set_line_width(cr, 4);
  setColor(cr, state.phase == Phase::failure || state.phase == Phase::error ? kFailureLine : kOvalLine);
  ovalPath(cr, oval);
  cairo_stroke(cr);
  const double done = state.phase == Phase::processing ? std::clamp(state.progress, 0.0, 1.0)
                      : state.phase == Phase::success  ? 1.0
                                                       : 0.0;
  if (done > 0) {
    setColor(cr, kProgressLine);
    cairo_set_line_width(cr, 6);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    ellipsePath(cr, oval.cx, oval.cy, oval.rx, oval.ry, -kPi / 2, -kPi / 2 + 2 * kPi * done);
    cairo_stroke(cr);
  }

  // The app bar: its colour, the title, the logo (the close button is a
  // widget of its own, over it).
  if (options.headerBackgroundColor) {
    setColor(cr, *options.headerBackgroundColor);
    cairo_rectangle(cr, 0, 0, width, kAppBarHeight);
    cairo_fill(cr);
  }
  if (options.title) {
    PangoLayout* layout = textLayout(cr, options, *options.title, kTitleSize, true);
    pango_layout_set_width(layout, static_cast<int>((width - 2 * (kCloseButtonSide + 16)) * PANGO_SCALE));
    pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
    pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
    int tw = 0, th = 0;
    pango_layout_get_pixel_size(layout, &tw, &th);
    setColor(cr, options.titleTextColor ? *options.titleTextColor : *Color::white(1, 1));
    cairo_move_to(cr, kCloseButtonSide + 16, (kAppBarHeight - th) / 2);
    pango_cairo_show_layout(cr, layout);
    g_object_unref(layout);
  }
  if (options.logoImage) {
    drawImage(cr, *options.logoImage, width - kCloseButtonSide - 8, (kAppBarHeight - kCloseButtonSide) / 2,
              kCloseButtonSide, nullptr);
  }

  // The prompt under the oval.
  PangoLayout* layout = textLayout(cr, options, promptText(state), kPromptSize, false);
  pango_layout_set_width(layout, static_cast<int>((width - 64) * PANGO_SCALE));
  pango_layout_set_wrap(layout, PANGO_WRAP_WORD);
  pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
  int tw = 0, th = 0;
  pango_layout_get_pixel_size(layout, &tw, &th);
  const double padX = 18, padY = 10;
  const double boxW = tw + 2 * padX, boxH = th + 2 * padY;
  const double boxX = (width - boxW) / 2, boxY = std::min(oval.cy + oval.ry + 28, height - boxH - 16);
  if (options.promptBackgroundColor) {
    setColor(cr, *options.promptBackgroundColor);
    if (options.promptRoundedCorners) {
      roundedRectangle(cr, boxX, boxY, boxW, boxH, std::min(kPromptRadius, boxH / 2));
    } else {
      cairo_rectangle(cr, boxX, boxY, boxW, boxH);
    }
    cairo_fill(cr);
  }
  setColor(cr, options.promptTextColor ? *options.promptTextColor : *Color::white(1, 1));
  // The layout is as wide as the screen allows and centres its lines.
  cairo_move_to(cr, 32, boxY + padY);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
}

void drawCloseGlyph(cairo_t* cr, int width, int height, const Options& options) {
  const Color tint = options.closeButtonTintColor ? *options.closeButtonTintColor : *Color::white(1, 1);
  const double side = std::min(width, height);
  if (options.closeButtonImage) {
    drawImage(cr, *options.closeButtonImage, (width - side) / 2 + side * 0.2, (height - side) / 2 + side * 0.2,
              side * 0.6, &tint);
    return;
  }
  setColor(cr, tint);
  cairo_set_line_width(cr, 2.5);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  const double cx = width / 2.0, cy = height / 2.0, r = side * 0.22;
  cairo_move_to(cr, cx - r, cy - r);
  cairo_line_to(cr, cx + r, cy + r);
  cairo_move_to(cr, cx + r, cy - r);
  cairo_line_to(cr, cx - r, cy + r);
  cairo_stroke(cr);
}

}  // namespace kiv::gtk
