#include <gtest/gtest.h>
#include <webp/encode.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "gif_writer.hpp"
#include "kiv/gif_overlay_view.hpp"
#include "kiv/image_helpers.hpp"
#include "support/child_process.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::encodeGif;
using testing::GifLayout;
using testing::paletteIndices;
using testing::solidFrame;

// A bundle in a throw-away directory, and writers of 2x2 frames of one
// basicPalette() colour.
class BundleTest : public ::testing::Test {
 public:
  void write(const std::string& file, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories((dir_.path() / file).parent_path());
    std::ofstream(dir_.path() / file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  void writeGif(const std::string& file, std::uint8_t color, int frames = 1) {
    GifLayout layout{2, 2};
    for (int i = 0; i < frames; ++i) layout.frames.push_back(solidFrame(0, 0, 2, 2, color, 5));
    write(file, encodeGif(layout).bytes);
  }

  void writeWebP(const std::string& file, std::uint8_t color) {
    const auto rgb = GifLayout::basicPalette()[color];
    std::vector<std::uint8_t> rgba;
    for (int i = 0; i < 4; ++i) rgba.insert(rgba.end(), {rgb.Red, rgb.Green, rgb.Blue, 255});
    std::uint8_t* encoded = nullptr;
    const std::size_t size = WebPEncodeLosslessRGBA(rgba.data(), 2, 2, 8, &encoded);
    write(file, std::vector<std::uint8_t>(encoded, encoded + size));
    WebPFree(encoded);
  }

  const testing::TemporaryDirectory dir_;
  const ResourceBundleRef bundle_ = ResourceBundle::make(dir_.path(), "com.example.host");
};

TEST_F(BundleTest, SequenceLoadsNumberedFramesInOrderOrReversed) {
  for (int k = 1; k <= 4; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
  const auto forward = framedImageSequence("loading", 3, false, "gif", *bundle_);
  ASSERT_TRUE(forward);
  EXPECT_EQ(paletteIndices(*forward), (std::vector<int>{1, 2, 3}));
  const auto backward = framedImageSequence("loading", 3, true, "gif", *bundle_);
  ASSERT_TRUE(backward);
  EXPECT_EQ(paletteIndices(*backward), (std::vector<int>{3, 2, 1}));
}

TEST_F(BundleTest, SequenceFramesAreWebPsOrTheFirstFrameOfGifs) {
  writeWebP("frames/spin_1.webp", 5);
  writeWebP("frames/spin_2.webp", 6);
  const auto webp = framedImageSequence("frames/spin", 2, false, "webp", *bundle_);
  ASSERT_TRUE(webp);
  EXPECT_EQ(paletteIndices(*webp), (std::vector<int>{5, 6}));

  writeGif("blink_1.gif", 7, 3);
  const auto gif = framedImageSequence("blink", 1, false, "gif", *bundle_);
  ASSERT_TRUE(gif);
  EXPECT_FALSE(gif->front()->isAnimated());
  EXPECT_EQ(paletteIndices(*gif), (std::vector<int>{7}));
}

TEST_F(BundleTest, ABrokenSequenceGivesNoListAtAll) {
  auto undecodable = encodeGif(GifLayout{2, 2, {solidFrame(0, 0, 2, 2, 1), solidFrame(0, 0, 2, 2, 2)}});
  undecodable.bytes[undecodable.frameData[0] + 1] = undecodable.bytes[undecodable.frameData[0] + 2] = 0xFF;
  const struct {
    const char* name;
    std::function<void()> damage;  // after loading_1 ... loading_5.gif are written
    int frameCount;
  } rows[] = {{"third frame missing", [&] { std::filesystem::remove(dir_.path() / "loading_3.gif"); }, 5},
              {"third frame is not an image",
               [&] {
                 write("loading_3.gif", {'G', 'I', 'F'});
               },
               5},
              {"first frame of the third file undecodable", [&] { write("loading_3.gif", undecodable.bytes); }, 5},
              {"more frames asked than exist", [] {}, 6},
              {"zero frames", [] {}, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (int k = 1; k <= 5; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
    row.damage();
    EXPECT_FALSE(framedImageSequence("loading", row.frameCount, false, "gif", *bundle_));
  }
}

TEST_F(BundleTest, NamedGifIsTheBundlesGifResource) {
  writeGif("success.gif", 2, 3);
  writeGif("other.png", 2);
  const auto image = gifImage("success", *bundle_);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->frames().size(), 3u);
  EXPECT_DOUBLE_EQ(image->duration(), 0.15);
  EXPECT_FALSE(gifImage("missing", *bundle_));
  EXPECT_FALSE(gifImage("other", *bundle_));
}

class GifOverlayViewTest : public testing::PlatformTest {};

TEST_F(GifOverlayViewTest, ClearOverlayKeepsAnAspectFitImageViewCentredAt100Points) {
  const auto overlay = KivGifOverlayView::make(Rect::make(0, 0, 300, 500));
  ASSERT_TRUE(overlay->view()->backgroundColor());
  EXPECT_EQ(*overlay->view()->backgroundColor(), *Color::clear());
  EXPECT_EQ(overlay->view()->subviews(), std::vector<std::shared_ptr<View>>{overlay->imageView()});
  EXPECT_EQ(overlay->imageView()->contentMode(), ContentMode::scaleAspectFit);
  EXPECT_EQ(overlay->imageView()->frame(), Rect::make(100, 200, 100, 100));
  overlay->view()->setFrame(Rect::make(0, 0, 200, 200));
  EXPECT_EQ(overlay->imageView()->frame(), Rect::make(50, 50, 100, 100));
  EXPECT_FALSE(overlay->completion());
}

}  // namespace
}  // namespace kiv
