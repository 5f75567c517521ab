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

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& row) {
  return row.param.name;
}

// Five 8x8 frames of colours 0..4, shown for 0.1, 0.2, 0.3, 0.4 and 0.5 s.
EncodedGif fiveFrames() {
  GifLayout layout{8, 8};
  for (int i = 0; i < 5; ++i)
    layout.frames.push_back(solidFrame(0, 0, 8, 8, static_cast<std::uint8_t>(i), 10 * (i + 1)));
  return encodeGif(layout);
}

struct DelayRow {
  std::string name;
  std::vector<std::optional<int>> centiseconds;  // absent: no control block
  double duration;
};
void PrintTo(const DelayRow& row, std::ostream* out) { *out << row.name; }

class GifDelayTest : public ::testing::TestWithParam<DelayRow> {};

TEST_P(GifDelayTest, DurationAddsEachFrameDelay) {
  GifLayout layout{4, 4};
  for (const auto& delay : GetParam().centiseconds) layout.frames.push_back(solidFrame(0, 0, 4, 4, 1, delay));
  const auto image = gifImage(encodeGif(layout).bytes);
  ASSERT_TRUE(image && image->isAnimated());
  EXPECT_EQ(image->frames().size(), GetParam().centiseconds.size());
  EXPECT_DOUBLE_EQ(image->duration(), GetParam().duration);
}

INSTANTIATE_TEST_SUITE_P(Delays, GifDelayTest,
                         ::testing::Values(DelayRow{"ZeroDelaysPlayATenthEach", {0, 0, 0}, 0.3},
                                           DelayRow{"NoControlBlockPlaysATenth", {std::nullopt}, 0.1},
                                           DelayRow{"TwoCentisecondsAreNotClamped", {2}, 0.02},
                                           DelayRow{"OneCentisecondIsNotClamped", {1, 1}, 0.02},
                                           DelayRow{"MixedDelaysAddUp", {7, 0, 150, std::nullopt}, 1.77}),
                         rowName<DelayRow>);

TEST(GifDecoderTest, FramesKeepTheRawDelayUnclampedAndAtLeastATenthClamped) {
  const auto gif =
      gif::decode(encodeGif(GifLayout{2, 2, {solidFrame(0, 0, 2, 2, 0, 2), solidFrame(0, 0, 2, 2, 0)}}).bytes);
  ASSERT_TRUE(gif && gif->frames.size() == 2);
  EXPECT_EQ(gif->frames[0].delays.unclamped, 0.02);
  EXPECT_EQ(gif->frames[0].delays.clamped, 0.1);
  EXPECT_FALSE(gif->frames[1].delays.unclamped || gif->frames[1].delays.clamped);
  EXPECT_EQ(gif::frameDelay({std::nullopt, 0.25}), 0.25);  // clamped is the fallback
}

struct DamageRow {
  std::string name;
  std::function<void(EncodedGif&)> damage;
  std::vector<int> keptColors;
  double duration;
};
void PrintTo(const DamageRow& row, std::ostream* out) { *out << row.name; }

class GifDamageTest : public ::testing::TestWithParam<DamageRow> {};

TEST_P(GifDamageTest, UndecodableFramesAreLeftOutWithTheirDelay) {
  auto gif = fiveFrames();
  GetParam().damage(gif);
  const auto image = gifImage(gif.bytes);
  ASSERT_TRUE(image);
  EXPECT_EQ(testing::paletteIndices(image->frames()), GetParam().keptColors);
  EXPECT_NEAR(image->duration(), GetParam().duration, 1e-9);
}

// Overwrites the first LZW bytes of a frame (past its sub-block length).
std::function<void(EncodedGif&)> codes(std::size_t frame, std::uint8_t first, std::uint8_t second) {
  return [=](EncodedGif& gif) {
    gif.bytes[gif.frameData[frame] + 1] = first;
    gif.bytes[gif.frameData[frame] + 2] = second;
  };
}

INSTANTIATE_TEST_SUITE_P(
    Damage, GifDamageTest,
    ::testing::Values(DamageRow{"UndefinedCodeInThirdFrame", codes(2, 0xFF, 0xFF), {0, 1, 3, 4}, 1.2},
                      // 4-bit codes for an 8-colour table: clear (8), then end (9) at once.
                      DamageRow{"ThirdFrameEndsBeforeItsPixels", codes(2, 0x98, 0x00), {0, 1, 3, 4}, 1.2},
                      DamageRow{"FirstFrameUndecodable", codes(0, 0xFF, 0xFF), {1, 2, 3, 4}, 1.4},
                      DamageRow{"CodeSizeOutOfRange",
                                [](EncodedGif& gif) { gif.bytes[gif.frameData[1] - 1] = 12; },
                                {0, 2, 3, 4},
                                1.3},
                      DamageRow{"FileCutInsideFourthFrame",
                                [](EncodedGif& gif) { gif.bytes.resize(gif.frameData[3] + 2); },
                                {0, 1, 2},
                                0.6}),
    rowName<DamageRow>);

struct DisposalRow {
  std::string name;
  int disposal;
  int afterwards;  // what the disposed frame's pixel shows in the next frame
};
void PrintTo(const DisposalRow& row, std::ostream* out) { *out << row.name; }

class GifDisposalTest : public ::testing::TestWithParam<DisposalRow> {};

// Red (0) over a 3x1 canvas, then blue (2) at x = 1 with the disposal under
// test, then green (1) at x = 2.
TEST_P(GifDisposalTest, DisposalDecidesWhatTheNextFrameStartsFrom) {
  GifLayout layout{3, 1, {solidFrame(0, 0, 3, 1, 0), solidFrame(1, 0, 1, 1, 2), solidFrame(2, 0, 1, 1, 1)}};
  layout.frames[1].disposal = GetParam().disposal;
  const auto image = gifImage(encodeGif(layout).bytes);
  ASSERT_TRUE(image && image->frames().size() == 3);
  const auto& frames = image->frames();
  EXPECT_EQ(paletteIndexAt(frames[1], 1), 2);
  EXPECT_EQ(paletteIndexAt(frames[2], 0), 0);
  EXPECT_EQ(paletteIndexAt(frames[2], 1), GetParam().afterwards);
  EXPECT_EQ(paletteIndexAt(frames[2], 2), 1);
}

INSTANTIATE_TEST_SUITE_P(Disposal, GifDisposalTest,
                         ::testing::Values(DisposalRow{"Unspecified", DISPOSAL_UNSPECIFIED, 2},
                                           DisposalRow{"DoNotDispose", DISPOSE_DO_NOT, 2},
                                           DisposalRow{"RestoreToBackgroundClears", DISPOSE_BACKGROUND, kClear},
                                           DisposalRow{"RestoreToPrevious", DISPOSE_PREVIOUS, 0}),
                         rowName<DisposalRow>);

TEST(GifDecoderTest, TransparencyLocalTablesAndClippingOnATransparentCanvas) {
  // A red pixel at the top left, then a 4x3 frame over the 3x2 canvas whose
  // index 1 is transparent and whose own table makes index 0 white.
  FrameLayout over{0, 0, 4, 3, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}};
  over.transparentIndex = 1;
  over.localColors = {{255, 255, 255}, {0, 0, 255}};
  const auto gif = gif::decode(encodeGif(GifLayout{3, 2, {solidFrame(0, 0, 1, 1, 0), over}}).bytes);
  ASSERT_TRUE(gif && gif->frames.size() == 2);
  EXPECT_EQ(paletteIndexAt(gif->frames[0].image, 1, 0), kClear);
  const auto& second = gif->frames[1].image;
  EXPECT_EQ(paletteIndexAt(second, 0, 0), 0);       // transparent over red
  EXPECT_EQ(paletteIndexAt(second, 1, 1), kClear);  // transparent over nothing
  EXPECT_EQ(paletteIndexAt(second, 2, 0), 3);
  EXPECT_EQ(paletteIndexAt(second, 0, 1), 3);
}

TEST(GifDecoderTest, InterlacedRowsLandWhereTheyBelong) {
  FrameLayout frame{0, 0, 1, 11, {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2}};
  frame.interlaced = true;
  const auto gif = gif::decode(encodeGif(GifLayout{1, 11, {frame}}).bytes);
  ASSERT_TRUE(gif && gif->frames.size() == 1);
  for (int row = 0; row < 11; ++row) EXPECT_EQ(paletteIndexAt(gif->frames[0].image, 0, row), row % 8) << row;
}

struct RefusedRow {
  std::string name;
  std::function<std::vector<std::uint8_t>()> bytes;
};
void PrintTo(const RefusedRow& row, std::ostream* out) { *out << row.name; }

class GifRefusedTest : public ::testing::TestWithParam<RefusedRow> {};

TEST_P(GifRefusedTest, GivesNoImage) { EXPECT_FALSE(gifImage(GetParam().bytes())); }

INSTANTIATE_TEST_SUITE_P(
    Refused, GifRefusedTest,
    ::testing::Values(RefusedRow{"NotAGif", [] { return std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', 0, 0}; }},
                      RefusedRow{"NoFrames",
                                 [] {
                                   return encodeGif(GifLayout{4, 4}).bytes;
                                 }},
                      RefusedRow{"NoFrameDecodes",
                                 [] {
                                   auto gif = fiveFrames();
                                   for (std::size_t i = 0; i < 5; ++i) codes(i, 0xFF, 0xFF)(gif);
                                   return gif.bytes;
                                 }},
                      RefusedRow{"CanvasOverTheLimit",
                                 [] {
                                   return encodeGif(GifLayout{8192, 4096, {solidFrame(0, 0, 1, 1, 0)}}).bytes;
                                 }}),
    rowName<RefusedRow>);

TEST(GifDecoderTest, FramesBeyondTheMemoryBudgetRefuseTheWholeImage) {
  const auto bytes = encodeGif(GifLayout{10, 10, {solidFrame(0, 0, 1, 1, 0), solidFrame(0, 0, 1, 1, 1)}}).bytes;
  EXPECT_FALSE(gif::decode(bytes, {.maxDecodedBytes = 799}));  // two frames of 400 bytes
  EXPECT_TRUE(gif::decode(bytes, {.maxDecodedBytes = 800}));
}

}  // namespace
}  // namespace kiv
