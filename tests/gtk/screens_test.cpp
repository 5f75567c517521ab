// The screens a person looks at, compared with PNGs under tests/gtk/screens
// that were checked by eye: `kivfll preview` of two looks (tests/gtk/looks,
// with tick.gif, a tick in a green disc in three frames, in the GIF
// overlay), and the capture screen in the vendor's default look (the
// line-drawing filter). Drawing is
// Cairo's, so pixels agree up to a small tolerance for antialiasing.
//
// After a change to what is drawn, KIV_UPDATE_SCREENS=1 writes the new PNGs
// over the reviewed ones; look at each before committing it.
#include <gtest/gtest.h>

#include <cairo.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/gtk/capture_screen.hpp"
#include "support/child_process.hpp"

namespace kiv::testing {
namespace {

const std::filesystem::path kData = KIV_GTK_TEST_DATA;

// Fraction of pixels where a channel differs by more than a little; 1 when
// either file is missing or the sizes differ.
double differingPixels(const std::filesystem::path& a, const std::filesystem::path& b) {
  cairo_surface_t* first = cairo_image_surface_create_from_png(a.c_str());
  cairo_surface_t* second = cairo_image_surface_create_from_png(b.c_str());
  double fraction = 1;
  const int w = cairo_image_surface_get_width(first), h = cairo_image_surface_get_height(first);
  if (cairo_surface_status(first) == CAIRO_STATUS_SUCCESS && cairo_surface_status(second) == CAIRO_STATUS_SUCCESS &&
      cairo_image_surface_get_format(first) == cairo_image_surface_get_format(second) &&
      w == cairo_image_surface_get_width(second) && h == cairo_image_surface_get_height(second) && w > 0) {
    long differing = 0;
    for (int y = 0; y < h; ++y) {
      const auto* p = cairo_image_surface_get_data(first) + y * cairo_image_surface_get_stride(first);
      const auto* q = cairo_image_surface_get_data(second) + y * cairo_image_surface_get_stride(second);
      for (int x = 0; x < w * 4; x += 4) {
        bool differs = false;
        for (int c = 0; c < 4; ++c) differs = differs || std::abs(p[x + c] - q[x + c]) > 24;
        differing += differs;
      }
    }
    fraction = static_cast<double>(differing) / (static_cast<double>(w) * h);
  }
  cairo_surface_destroy(first);
  cairo_surface_destroy(second);
  return fraction;
}

constexpr double kTolerance = 0.005;  // of the pixels

void expectReviewed(const std::filesystem::path& made, const std::string& reviewed) {
  const auto file = kData / "screens" / reviewed;
  if (std::getenv("KIV_UPDATE_SCREENS"))
    std::filesystem::copy_file(made, file, std::filesystem::copy_options::overwrite_existing);
  EXPECT_LE(differingPixels(made, file), kTolerance) << made << " against the reviewed " << file;
}

TEST(ScreensTest, PreviewsOfTwoLooksDifferOnlyOnTheCaptureScreen) {
  TemporaryDirectory out;
  for (const std::string look : {"bank", "studio"}) {
    std::vector<std::string> arguments{"preview", "--customization", (kData / "looks" / (look + ".json")).string(),
                                       "--out", (out.path() / look).string()};
    if (look == "bank") arguments.insert(arguments.end(), {"--gif", (kData / "looks" / "tick.gif").string()});
    const auto end = runToEnd(KIVFLL_PROGRAM, arguments, 60);
    ASSERT_EQ(end.exitCode, 0) << look << ": " << end.errors;
    for (const char* screen : {"capture-connected", "capture-processing"}) {
      expectReviewed(out.path() / look / (std::string(screen) + ".png"), std::string(look) + "-" + screen + ".png");
    }
  }
  EXPECT_LE(differingPixels(out.path() / "bank" / "loading.png", out.path() / "studio" / "loading.png"), kTolerance)
      << "the loading view is the SDK's own, whatever the look";
  expectReviewed(out.path() / "bank" / "loading.png", "loading.png");
  expectReviewed(out.path() / "bank" / "gif-overlay.png", "bank-gif-overlay.png");
  EXPECT_GT(
      differingPixels(out.path() / "bank" / "capture-connected.png", out.path() / "studio" / "capture-connected.png"),
      0.3);
}

TEST(ScreensTest, TheVendorsDefaultLookIsALineDrawing) {
  TemporaryDirectory out;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 360, 640);
  cairo_t* cr = cairo_create(surface);
  gtk::drawCaptureScreen(cr, 360, 640, Options{}, {gtk::CaptureScreenState::Phase::processing, 0.3, {}}, 0);
  cairo_destroy(cr);
  const auto made = out.path() / "default.png";
  ASSERT_EQ(cairo_surface_write_to_png(surface, made.c_str()), CAIRO_STATUS_SUCCESS);
  cairo_surface_destroy(surface);
  expectReviewed(made, "default-line-drawing.png");
}

}  // namespace
}  // namespace kiv::testing
