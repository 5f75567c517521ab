#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "gif_writer.hpp"
#include "kiv/image_helpers.hpp"
#include "ui/gif_decoder.hpp"

namespace kiv {
namespace {

using testing::EncodedGif;
using testing::encodeGif;
using testing::FrameLayout;
using testing::GifLayout;
using testing::kClear;
using testing::paletteIndexAt;
using testing::solidFrame;

// Five 8x8 frames of colours 0..4, shown for 0.1, 0.2, 0.3, 0.4 and 0.5 s.
EncodedGif fiveFrames() {
  GifLayout layout{8, 8};
  for (int i = 0; i < 5; ++i)
    layout.frames.push_back(solidFrame(0, 0, 8, 8, static_cast<std::uint8_t>(i), 10 * (i + 1)));
  return encodeGif(layout);
}

// Overwrites the first LZW bytes of a frame (past its sub-block length).
std::function<void(EncodedGif&)> codes(std::size_t frame, std::uint8_t first, std::uint8_t second) {
  return [=](EncodedGif& gif) {
    gif.bytes[gif.frameData[frame] + 1] = first;
    gif.bytes[gif.frameData[frame] + 2] = second;
  };
}

// A frame plays its own (unclamped) delay when above zero, else a tenth;
// short delays are not raised to the clamped tenth.
TEST(GifImageTest, DurationAddsEachFrameDelay) {
  const std::vector<std::pair<std::vector<std::optional<int>>, double>> rows{
      {{0, 0, 0}, 0.3}, {{std::nullopt}, 0.1}, {{1, 2}, 0.03}, {{7, 0, 150, std::nullopt}, 1.77}};
  for (const auto& [delays, duration] : rows) {
    GifLayout layout{4, 4};
    for (const auto& delay : delays) layout.frames.push_back(solidFrame(0, 0, 4, 4, 1, delay));
    const auto image = gifImage(encodeGif(layout).bytes);
    ASSERT_TRUE(image && image->isAnimated());
    EXPECT_EQ(image->frames().size(), delays.size());
    EXPECT_DOUBLE_EQ(image->duration(), duration);
  }
}

TEST(GifImageTest, UndecodableFramesAreLeftOutWithTheirDelay) {
  const struct {
    const char* name;
    std::function<void(EncodedGif&)> damage;
    std::vector<int> keptColors;
    double duration;
  } rows[] = {
      {"undefined code in the third frame", codes(2, 0xFF, 0xFF), {0, 1, 3, 4}, 1.2},
      // 4-bit codes for an 8-colour table: clear (8), then end (9) at once.
      {"third frame ends before its pixels", codes(2, 0x98, 0x00), {0, 1, 3, 4}, 1.2},
      {"first frame undecodable", codes(0, 0xFF, 0xFF), {1, 2, 3, 4}, 1.4},
      {"code size out of range", [](EncodedGif& gif) { gif.bytes[gif.frameData[1] - 1] = 12; }, {0, 2, 3, 4}, 1.3},
      {"file cut inside the fourth frame",
       [](EncodedGif& gif) { gif.bytes.resize(gif.frameData[3] + 2); },
       {0, 1, 2},
       0.6}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto gif = fiveFrames();
    row.damage(gif);
    const auto image = gifImage(gif.bytes);
    ASSERT_TRUE(image);
    EXPECT_EQ(testing::paletteIndices(image->frames()), row.keptColors);
    EXPECT_NEAR(image->duration(), row.duration, 1e-9);
  }
}

// Red (0) over a 3x1 canvas, then blue (2) at x = 1 with the disposal under
// test, then green (1) at x = 2: the disposal decides what the third frame
// shows at x = 1.
TEST(GifDecoderTest, DisposalDecidesWhatTheNextFrameStartsFrom) {
  const std::pair<int, int> afterwards[] = {
      {DISPOSAL_UNSPECIFIED, 2}, {DISPOSE_DO_NOT, 2}, {DISPOSE_BACKGROUND, kClear}, {DISPOSE_PREVIOUS, 0}};
  for (const auto& [disposal, shown] : afterwards) {
    SCOPED_TRACE(disposal);
    GifLayout layout{3, 1, {solidFrame(0, 0, 3, 1, 0), solidFrame(1, 0, 1, 1, 2), solidFrame(2, 0, 1, 1, 1)}};
    layout.frames[1].disposal = disposal;
    const auto image = gifImage(encodeGif(layout).bytes);
    ASSERT_TRUE(image && image->frames().size() == 3);
    const auto& frames = image->frames();
    EXPECT_EQ(paletteIndexAt(frames[1], 1), 2);
    const auto& third = frames[2];
    EXPECT_EQ((std::vector{paletteIndexAt(third, 0), paletteIndexAt(third, 1), paletteIndexAt(third, 2)}),
              (std::vector{0, shown, 1}));
  }
}

TEST(GifDecoderTest, TransparencyLocalTablesAndClippingOnATransparentCanvas) {
  // A red pixel at the top left, then a 4x3 frame over the 3x2 canvas whose
  // index 1 is transparent and whose own table makes index 0 white.
  FrameLayout over{0, 0, 4, 3, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}};
  over.transparentIndex = 1;
  over.localColors = {{255, 255, 255}, {0, 0, 255}};
  const auto gif = gif::decode(encodeGif(GifLayout{3, 2, {solidFrame(0, 0, 1, 1, 0), over}}).bytes);
  ASSERT_TRUE(gif && gif->frames.size() == 2);
  EXPECT_EQ(paletteIndexAt(gif->frames[0].image, 1, 0), kClear);
  // Transparent over red, transparent over nothing, then white twice.
  const auto& second = gif->frames[1].image;
  EXPECT_EQ((std::vector{paletteIndexAt(second, 0, 0), paletteIndexAt(second, 1, 1), paletteIndexAt(second, 2, 0),
                         paletteIndexAt(second, 0, 1)}),
            (std::vector{0, kClear, 3, 3}));
}

TEST(GifDecoderTest, InterlacedRowsLandWhereTheyBelong) {
  // Stored pass by pass: rows 0 and 8, row 4, rows 2, 6 and 10, then the odd rows.
  FrameLayout frame{0, 0, 1, 11, {0, 0, 4, 2, 6, 2, 1, 3, 5, 7, 1}};
  frame.interlaced = true;
  const auto gif = gif::decode(encodeGif(GifLayout{1, 11, {frame}}).bytes);
  ASSERT_TRUE(gif && gif->frames.size() == 1);
  for (int row = 0; row < 11; ++row) EXPECT_EQ(paletteIndexAt(gif->frames[0].image, 0, row), row % 8) << row;
}

TEST(GifImageTest, WithoutADecodableFrameThereIsNoImage) {
  auto noneDecodes = fiveFrames();
  for (std::size_t i = 0; i < 5; ++i) codes(i, 0xFF, 0xFF)(noneDecodes);
  EXPECT_FALSE(gifImage(std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', 0, 0}));
  EXPECT_FALSE(gifImage(encodeGif(GifLayout{4, 4}).bytes));  // no frames
  EXPECT_FALSE(gifImage(noneDecodes.bytes));
  EXPECT_FALSE(gifImage(encodeGif(GifLayout{8192, 4096, {solidFrame(0, 0, 1, 1, 0)}}).bytes));  // canvas too big
}

TEST(GifDecoderTest, FramesBeyondTheMemoryBoundRefuseTheWholeImage) {
  const auto bytes = encodeGif(GifLayout{10, 10, {solidFrame(0, 0, 1, 1, 0), solidFrame(0, 0, 1, 1, 1)}}).bytes;
  EXPECT_FALSE(gif::decode(bytes, {.maxHeldBytes = 199}));  // two frames of 100 one-byte indices
  EXPECT_TRUE(gif::decode(bytes, {.maxHeldBytes = 200}));
}

// Twelve seconds of 1280 x 720 at ten frames a second: a white canvas with a
// red 16 x 16 square moving right. The file is a few kilobytes; as RGBA its
// frames would be 442 MB, as palette indices 110 MB.
TEST(GifImageTest, TwelveSecondsOfHdAnimationAreKeptWholeAtOneBytePerPixel) {
  constexpr int kWidth = 1280, kHeight = 720, kFrames = 120;
  GifLayout layout{kWidth, kHeight, {solidFrame(0, 0, kWidth, kHeight, 3, 10)}};
  for (int i = 1; i < kFrames; ++i) {
    layout.frames.push_back(solidFrame(i * 10, 352, 16, 16, 0, 10));
    layout.frames.back().disposal = DISPOSE_BACKGROUND;
  }
  const auto image = gifImage(encodeGif(layout).bytes);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->frames().size(), std::size_t{kFrames});
  EXPECT_NEAR(image->duration(), 12.0, 1e-9);
  EXPECT_LE(image->byteCount(), std::size_t{kFrames} * kWidth * kHeight + 1024);
  const auto& last = image->frames().back();
  EXPECT_EQ(last->width(), kWidth);
  EXPECT_EQ(paletteIndexAt(last, 1190, 360), 0);       // the square, where the last frame put it
  EXPECT_EQ(paletteIndexAt(last, 1180, 360), kClear);  // where the one before was cleared
  EXPECT_EQ(paletteIndexAt(last, 0, 0), 3);
}

}  // namespace
}  // namespace kiv
