#include <gtest/gtest.h>
#include <unistd.h>
#include <webp/encode.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "gif_writer.hpp"
#include "kiv/gif_overlay_view.hpp"
#include "kiv/image_helpers.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::encodeGif;
using testing::GifLayout;
using testing::paletteIndices;
using testing::solidFrame;

std::filesystem::path freshDirectory() {
  std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::replace(name.begin(), name.end(), '/', '_');
  return std::filesystem::temp_directory_path() / ("kiv_images_" + std::to_string(::getpid()) + "_" + name);
}

// A bundle in a throw-away directory, and writers of 2x2 frames of one
// basicPalette() colour.
class BundleTest : public ::testing::Test {
 public:
  ~BundleTest() override { std::filesystem::remove_all(dir_); }

  void write(const std::string& file, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories((dir_ / file).parent_path());
    std::ofstream(dir_ / file, std::ios::binary)
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

  const std::filesystem::path dir_ = freshDirectory();
  const ResourceBundleRef bundle_ = ResourceBundle::make(dir_, "com.example.host");
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

struct BrokenRow {
  std::string name;
  std::function<void(BundleTest&)> damage;  // after loading_1 ... loading_5.gif are written
  int frameCount;
};
void PrintTo(const BrokenRow& row, std::ostream* out) { *out << row.name; }

class BrokenSequenceTest : public BundleTest, public ::testing::WithParamInterface<BrokenRow> {};

TEST_P(BrokenSequenceTest, GivesNoListAtAll) {
  for (int k = 1; k <= 5; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
  GetParam().damage(*this);
  EXPECT_FALSE(framedImageSequence("loading", GetParam().frameCount, false, "gif", *bundle_));
}

INSTANTIATE_TEST_SUITE_P(
    Broken, BrokenSequenceTest,
    ::testing::Values(
        BrokenRow{"ThirdFrameMissing", [](BundleTest& b) { std::filesystem::remove(b.dir_ / "loading_3.gif"); }, 5},
        BrokenRow{"ThirdFrameIsNotAnImage",
                  [](BundleTest& b) {
                    b.write("loading_3.gif", {'G', 'I', 'F'});
                  },
                  5},
        BrokenRow{"FirstFrameOfThirdFileUndecodable",
                  [](BundleTest& b) {
                    auto gif = encodeGif(GifLayout{2, 2, {solidFrame(0, 0, 2, 2, 1), solidFrame(0, 0, 2, 2, 2)}});
                    gif.bytes[gif.frameData[0] + 1] = gif.bytes[gif.frameData[0] + 2] = 0xFF;
                    b.write("loading_3.gif", gif.bytes);
                  },
                  5},
        BrokenRow{"MoreFramesAskedThanExist", [](BundleTest&) {}, 6}, BrokenRow{"ZeroFrames", [](BundleTest&) {}, 0}),
    [](const ::testing::TestParamInfo<BrokenRow>& row) { return row.param.name; });

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
