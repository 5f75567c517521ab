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
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::basicPalette;
using testing::encodeGif;
using testing::GifSpec;
using testing::solidFrame;

// A throw-away bundle directory per test.
std::filesystem::path freshDirectory() {
  std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::replace(name.begin(), name.end(), '/', '_');
  return std::filesystem::temp_directory_path() / ("kiv_images_" + std::to_string(::getpid()) + "_" + name);
}

class BundleTest : public ::testing::Test {
 public:
  ~BundleTest() override { std::filesystem::remove_all(dir_); }

  const std::filesystem::path& dir() const { return dir_; }

  void write(const std::string& file, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories((dir_ / file).parent_path());
    std::ofstream(dir_ / file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  // A 2x2 GIF of palette colour `color`; `frames` frames long.
  void writeGif(const std::string& file, std::uint8_t color, int frames = 1) {
    GifSpec spec{2, 2, basicPalette(), {}};
    for (int i = 0; i < frames; ++i) spec.frames.push_back(solidFrame(0, 0, 2, 2, color, 5));
    write(file, encodeGif(spec).bytes);
  }

  void writeWebP(const std::string& file, std::uint8_t color) {
    const auto rgb = basicPalette()[color];
    std::vector<std::uint8_t> rgba;
    for (int i = 0; i < 4; ++i) rgba.insert(rgba.end(), {rgb.red, rgb.green, rgb.blue, 255});
    std::uint8_t* encoded = nullptr;
    const std::size_t size = WebPEncodeLosslessRGBA(rgba.data(), 2, 2, 8, &encoded);
    ASSERT_GT(size, 0u);
    write(file, std::vector<std::uint8_t>(encoded, encoded + size));
    WebPFree(encoded);
  }

  // Palette index of each image's top-left pixel (-1 when none matches).
  static std::vector<int> colors(const std::vector<ImageRef>& images) {
    std::vector<int> found;
    const auto palette = basicPalette();
    for (const auto& image : images) {
      int index = -1;
      for (std::size_t i = 0; i < palette.size(); ++i) {
        const auto& p = image->rgba();
        if (p[0] == palette[i].red && p[1] == palette[i].green && p[2] == palette[i].blue && p[3] == 255) {
          index = static_cast<int>(i);
        }
      }
      found.push_back(index);
    }
    return found;
  }

 protected:
  const std::filesystem::path dir_ = freshDirectory();
  const ResourceBundleRef bundle_ = ResourceBundle::make(dir_, "com.example.host");
};

TEST_F(BundleTest, SequenceLoadsNumberedFramesInOrderOrReversed) {
  for (int k = 1; k <= 3; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
  writeGif("loading_4.gif", 4);  // beyond the count: not read

  const auto forward = framedImageSequence("loading", 3, false, "gif", *bundle_);
  ASSERT_TRUE(forward);
  EXPECT_EQ(colors(*forward), (std::vector<int>{1, 2, 3}));
  const auto backward = framedImageSequence("loading", 3, true, "gif", *bundle_);
  ASSERT_TRUE(backward);
  EXPECT_EQ(colors(*backward), (std::vector<int>{3, 2, 1}));
}

TEST_F(BundleTest, SequenceTakesWebPAndGifFirstFramesFromSubfolders) {
  writeWebP("frames/spin_1.webp", 5);
  writeWebP("frames/spin_2.webp", 6);
  const auto webp = framedImageSequence("frames/spin", 2, false, "webp", *bundle_);
  ASSERT_TRUE(webp);
  EXPECT_EQ(colors(*webp), (std::vector<int>{5, 6}));
  EXPECT_FALSE(webp->front()->isAnimated());

  writeGif("frames/blink_1.gif", 7, 3);  // an animation gives its first frame
  const auto gif = framedImageSequence("frames/blink", 1, false, "gif", *bundle_);
  ASSERT_TRUE(gif);
  EXPECT_FALSE(gif->front()->isAnimated());
  EXPECT_EQ(colors(*gif), (std::vector<int>{7}));
}

struct BrokenSequence {
  std::string name;
  std::function<void(BundleTest&)> damage;  // done after loading_1 ... loading_5.gif are written
  int frameCount;
};
void PrintTo(const BrokenSequence& row, std::ostream* out) { *out << row.name; }

class BrokenSequenceTest : public BundleTest, public ::testing::WithParamInterface<BrokenSequence> {};

TEST_P(BrokenSequenceTest, GivesNoListAtAll) {
  for (int k = 1; k <= 5; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
  GetParam().damage(*this);
  EXPECT_FALSE(framedImageSequence("loading", GetParam().frameCount, false, "gif", *bundle_));
}

INSTANTIATE_TEST_SUITE_P(
    Broken, BrokenSequenceTest,
    ::testing::Values(
        BrokenSequence{"ThirdFrameMissing",
                       [](BundleTest& bundle) { std::filesystem::remove(bundle.dir() / "loading_3.gif"); }, 5},
        BrokenSequence{"ThirdFrameIsNotAnImage",
                       [](BundleTest& bundle) {
                         bundle.write("loading_3.gif", {'n', 'o'});
                       },
                       5},
        BrokenSequence{"ThirdFramesFirstFrameDoesNotDecode",
                       [](BundleTest& bundle) {
                         GifSpec spec{2, 2, basicPalette(), {solidFrame(0, 0, 2, 2, 1), solidFrame(0, 0, 2, 2, 2)}};
                         auto gif = encodeGif(spec);
                         gif.bytes[gif.frameData[0] + 1] = gif.bytes[gif.frameData[0] + 2] = 0xFF;
                         bundle.write("loading_3.gif", gif.bytes);
                       },
                       5},
        BrokenSequence{"MoreFramesAskedThanExist", [](BundleTest&) {}, 6},
        BrokenSequence{"ZeroFrames", [](BundleTest&) {}, 0},
        BrokenSequence{"NegativeFrameCount", [](BundleTest&) {}, -1}),
    [](const ::testing::TestParamInfo<BrokenSequence>& row) { return row.param.name; });

TEST_F(BundleTest, NamedGifIsReadFromTheBundle) {
  writeGif("success.gif", 2, 3);
  write("text.gif", {'G', 'I', 'F'});
  writeGif("other.png", 2);

  const auto image = gifImage("success", *bundle_);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->frames().size(), 3u);
  EXPECT_DOUBLE_EQ(image->duration(), 0.15);
  EXPECT_FALSE(gifImage("missing", *bundle_));
  EXPECT_FALSE(gifImage("text", *bundle_));
  EXPECT_FALSE(gifImage("other", *bundle_));  // only the .gif extension is looked up
}

class GifOverlayViewTest : public testing::PlatformTest {};

TEST_F(GifOverlayViewTest, ClearOverlayWithACentredAspectFitImageView) {
  const auto overlay = KivGifOverlayView::make(Rect::make(0, 0, 300, 500));
  const auto& view = overlay->view();
  EXPECT_EQ(view->frame(), Rect::make(0, 0, 300, 500));
  ASSERT_TRUE(view->backgroundColor());
  EXPECT_EQ(*view->backgroundColor(), *Color::clear());
  ASSERT_EQ(view->subviews().size(), 1u);
  EXPECT_EQ(view->subviews().front(), overlay->imageView());
  EXPECT_EQ(overlay->imageView()->contentMode(), ContentMode::scaleAspectFit);
  EXPECT_EQ(overlay->imageView()->frame(), Rect::make(100, 200, 100, 100));
  view->setFrame(Rect::make(0, 0, 200, 200));
  EXPECT_EQ(overlay->imageView()->frame(), Rect::make(50, 50, 100, 100));

  EXPECT_FALSE(overlay->completion());
  int calls = 0;
  overlay->setCompletion([&calls] { ++calls; });
  overlay->completion()();
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace kiv
