#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "gif_writer.hpp"
#include "kiv/image_helpers.hpp"
#include "ui/gif_decoder.hpp"

namespace kiv {
namespace {

using testing::basicPalette;
using testing::encodeGif;
using testing::GifFrameSpec;
using testing::GifSpec;
using testing::solidFrame;

using Rgba = std::array<std::uint8_t, 4>;

template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& testCase) {
  return testCase.param.name;
}

constexpr Rgba kRed{255, 0, 0, 255};
constexpr Rgba kGreen{0, 255, 0, 255};
constexpr Rgba kBlue{0, 0, 255, 255};
constexpr Rgba kTransparent{0, 0, 0, 0};

Rgba pixel(const ImageRef& image, int x, int y) {
  const auto offset = (static_cast<std::size_t>(y) * static_cast<std::size_t>(image->width()) + x) * 4;
  const auto& rgba = image->rgba();
  return {rgba[offset], rgba[offset + 1], rgba[offset + 2], rgba[offset + 3]};
}

// The colour of each frame's top-left pixel, as an index into basicPalette().
std::vector<int> frameColors(const ImageRef& animated) {
  std::vector<int> colors;
  const auto palette = basicPalette();
  for (const auto& frame : animated->frames()) {
    const Rgba top = pixel(frame, 0, 0);
    int found = -1;
    for (std::size_t i = 0; i < palette.size(); ++i) {
      if (Rgba{palette[i].red, palette[i].green, palette[i].blue, 255} == top) found = static_cast<int>(i);
    }
    colors.push_back(found);
  }
  return colors;
}

// Five 8x8 frames of colours 0..4, shown for 0.1, 0.2, 0.3, 0.4 and 0.5 s.
GifSpec fiveFrames() {
  GifSpec spec{8, 8, basicPalette(), {}};
  for (int i = 0; i < 5; ++i) spec.frames.push_back(solidFrame(0, 0, 8, 8, static_cast<std::uint8_t>(i), 10 * (i + 1)));
  return spec;
}

// --- delays -----------------------------------------------------------------

struct DelayCase {
  std::string name;
  std::vector<std::optional<int>> centiseconds;  // absent: no control block
  double duration;
};
void PrintTo(const DelayCase& row, std::ostream* out) { *out << row.name; }

class GifDelayTest : public ::testing::TestWithParam<DelayCase> {};

TEST_P(GifDelayTest, TotalDurationAddsFrameDelays) {
  GifSpec spec{4, 4, basicPalette(), {}};
  for (const auto& delay : GetParam().centiseconds) spec.frames.push_back(solidFrame(0, 0, 4, 4, 1, delay));
  const auto image = gifImage(encodeGif(spec).bytes);
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->isAnimated());
  EXPECT_EQ(image->frames().size(), GetParam().centiseconds.size());
  EXPECT_DOUBLE_EQ(image->duration(), GetParam().duration);
}

INSTANTIATE_TEST_SUITE_P(
    Delays, GifDelayTest,
    ::testing::Values(DelayCase{"ZeroDelaysPlayForADefaultTenth", {0, 0, 0}, 0.3},
                      DelayCase{"NoControlBlockPlaysForADefaultTenth", {std::nullopt, std::nullopt}, 0.2},
                      DelayCase{"TwoCentisecondsAreNotClamped", {2}, 0.02},
                      DelayCase{"OneCentisecondIsNotClamped", {1, 1}, 0.02},
                      DelayCase{"MixedDelaysAddUp", {7, 0, 150, std::nullopt}, 0.07 + 0.1 + 1.5 + 0.1}),
    caseName<DelayCase>);

TEST(GifDecoderTest, FramesCarryTheControlBlockDelayUnclampedAndClamped) {
  GifSpec spec{2, 2, basicPalette(), {}};
  spec.frames = {solidFrame(0, 0, 2, 2, 0, 2), solidFrame(0, 0, 2, 2, 0, 0), solidFrame(0, 0, 2, 2, 0, 35),
                 solidFrame(0, 0, 2, 2, 0)};
  const auto gif = gif::decode(encodeGif(spec).bytes);
  ASSERT_TRUE(gif);
  ASSERT_EQ(gif->frames.size(), 4u);
  EXPECT_EQ(gif->frames[0].delays.unclamped, 0.02);
  EXPECT_EQ(gif->frames[0].delays.clamped, 0.1);
  EXPECT_EQ(gif->frames[1].delays.unclamped, 0.0);
  EXPECT_EQ(gif->frames[1].delays.clamped, 0.1);
  EXPECT_EQ(gif->frames[2].delays.unclamped, 0.35);
  EXPECT_EQ(gif->frames[2].delays.clamped, 0.35);
  EXPECT_FALSE(gif->frames[3].delays.unclamped);
  EXPECT_FALSE(gif->frames[3].delays.clamped);
  // When only the clamped value is known it is used.
  EXPECT_EQ(gif::frameDelay({std::nullopt, 0.25}), 0.25);
  EXPECT_EQ(gif::frameDelay({0.0, 0.0}), 0.1);
}

// --- damaged files ----------------------------------------------------------

struct DamageCase {
  std::string name;
  std::function<void(testing::EncodedGif&)> damage;
  std::vector<int> keptColors;
  double duration;
};
void PrintTo(const DamageCase& row, std::ostream* out) { *out << row.name; }

class GifDamageTest : public ::testing::TestWithParam<DamageCase> {};

TEST_P(GifDamageTest, UndecodableFramesAreLeftOutWithTheirDelay) {
  auto encoded = encodeGif(fiveFrames());
  GetParam().damage(encoded);
  const auto image = gifImage(encoded.bytes);
  ASSERT_TRUE(image);
  EXPECT_EQ(frameColors(image), GetParam().keptColors);
  EXPECT_NEAR(image->duration(), GetParam().duration, 1e-9);
}

// Overwrites the start of frame `frame`'s LZW codes (after the sub-block length).
std::function<void(testing::EncodedGif&)> overwriteCodes(std::size_t frame, std::vector<std::uint8_t> codes) {
  return [frame, codes](testing::EncodedGif& gif) {
    std::copy(codes.begin(), codes.end(), gif.bytes.begin() + static_cast<long>(gif.frameData[frame] + 1));
  };
}

// With the 3-bit codes of an 8-colour table: clear (8) then end (9) at once.
constexpr std::uint8_t kClearThenEnd[] = {0x08 | (0x09 << 4), 0x09 >> 4};

INSTANTIATE_TEST_SUITE_P(
    Damage, GifDamageTest,
    ::testing::Values(DamageCase{"UndefinedCodeInThirdFrame", overwriteCodes(2, {0xFF, 0xFF}), {0, 1, 3, 4}, 1.2},
                      DamageCase{"ThirdFrameEndsBeforeItsPixels",
                                 overwriteCodes(2, {std::begin(kClearThenEnd), std::end(kClearThenEnd)}),
                                 {0, 1, 3, 4},
                                 1.2},
                      DamageCase{"FirstFrameUndecodable", overwriteCodes(0, {0xFF, 0xFF}), {1, 2, 3, 4}, 1.4},
                      DamageCase{"CodeSizeOutOfRangeInSecondFrame",
                                 [](testing::EncodedGif& gif) { gif.bytes[gif.frameData[1] - 1] = 12; },
                                 {0, 2, 3, 4},
                                 1.3},
                      DamageCase{"FileCutInsideFourthFrame",
                                 [](testing::EncodedGif& gif) { gif.bytes.resize(gif.frameData[3] + 2); },
                                 {0, 1, 2},
                                 0.6},
                      DamageCase{"GarbageInsteadOfTrailer",
                                 [](testing::EncodedGif& gif) { gif.bytes.back() = 0x42; },
                                 {0, 1, 2, 3, 4},
                                 1.5}),
    caseName<DamageCase>);

// --- compositing ------------------------------------------------------------

struct DisposalCase {
  std::string name;
  int disposal;
  Rgba afterwards;  // what the disposed frame's rectangle shows in the next frame
};
void PrintTo(const DisposalCase& row, std::ostream* out) { *out << row.name; }

class GifDisposalTest : public ::testing::TestWithParam<DisposalCase> {};

// A red 3x1 canvas, then a blue pixel at x = 1 with the disposal under test,
// then a green pixel at x = 2.
TEST_P(GifDisposalTest, DisposalDecidesWhatTheNextFrameStartsFrom) {
  GifSpec spec{3, 1, basicPalette(), {}};
  spec.frames.push_back(solidFrame(0, 0, 3, 1, 0));
  spec.frames.push_back(solidFrame(1, 0, 1, 1, 2));
  spec.frames.back().disposal = GetParam().disposal;
  spec.frames.push_back(solidFrame(2, 0, 1, 1, 1));
  const auto image = gifImage(encodeGif(spec).bytes);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->frames().size(), 3u);
  const auto& second = image->frames()[1];
  const auto& third = image->frames()[2];
  EXPECT_EQ(pixel(second, 0, 0), kRed);
  EXPECT_EQ(pixel(second, 1, 0), kBlue);
  EXPECT_EQ(pixel(second, 2, 0), kRed);
  EXPECT_EQ(pixel(third, 0, 0), kRed);
  EXPECT_EQ(pixel(third, 1, 0), GetParam().afterwards);
  EXPECT_EQ(pixel(third, 2, 0), kGreen);
}

INSTANTIATE_TEST_SUITE_P(Disposal, GifDisposalTest,
                         ::testing::Values(DisposalCase{"Unspecified", DISPOSAL_UNSPECIFIED, kBlue},
                                           DisposalCase{"DoNotDispose", DISPOSE_DO_NOT, kBlue},
                                           DisposalCase{"RestoreToBackgroundClears", DISPOSE_BACKGROUND, kTransparent},
                                           DisposalCase{"RestoreToPrevious", DISPOSE_PREVIOUS, kRed}),
                         caseName<DisposalCase>);

TEST(GifDecoderTest, TransparencyLocalTablesClippingAndEmptyCanvasStart) {
  GifSpec spec{3, 2, basicPalette(), {}};
  // Only the top-left pixel: the rest of the canvas starts transparent.
  spec.frames.push_back(solidFrame(0, 0, 1, 1, 0));
  // Covers the whole canvas and beyond: index 1 is transparent, index 0 of
  // its own table is yellow; what lies off the canvas is dropped.
  GifFrameSpec over;
  over.width = 4;
  over.height = 3;
  over.indices = {1, 0, 0, 0,  //
                  0, 1, 0, 0,  //
                  0, 0, 0, 0};
  over.transparentIndex = 1;
  over.localColors = {{255, 255, 0}, {0, 0, 255}};
  spec.frames.push_back(over);
  const auto gif = gif::decode(encodeGif(spec).bytes);
  ASSERT_TRUE(gif);
  ASSERT_EQ(gif->frames.size(), 2u);
  EXPECT_EQ(pixel(gif->frames[0].image, 1, 0), kTransparent);
  const auto& second = gif->frames[1].image;
  const Rgba yellow{255, 255, 0, 255};
  EXPECT_EQ(pixel(second, 0, 0), kRed);          // transparent over red
  EXPECT_EQ(pixel(second, 1, 1), kTransparent);  // transparent over nothing
  EXPECT_EQ(pixel(second, 2, 0), yellow);
  EXPECT_EQ(pixel(second, 0, 1), yellow);
}

TEST(GifDecoderTest, InterlacedRowsLandWhereTheyBelong) {
  GifSpec spec{1, 11, basicPalette(), {}};
  GifFrameSpec frame = solidFrame(0, 0, 1, 11, 0);
  for (int row = 0; row < 11; ++row) frame.indices[static_cast<std::size_t>(row)] = static_cast<std::uint8_t>(row % 8);
  frame.interlaced = true;
  spec.frames.push_back(frame);
  const auto gif = gif::decode(encodeGif(spec).bytes);
  ASSERT_TRUE(gif);
  ASSERT_EQ(gif->frames.size(), 1u);
  const auto palette = basicPalette();
  for (int row = 0; row < 11; ++row) {
    const auto& color = palette[static_cast<std::size_t>(row % 8)];
    EXPECT_EQ(pixel(gif->frames[0].image, 0, row), (Rgba{color.red, color.green, color.blue, 255})) << row;
  }
}

// --- refused input ----------------------------------------------------------

struct RefusedCase {
  std::string name;
  std::function<std::vector<std::uint8_t>()> bytes;
};
void PrintTo(const RefusedCase& row, std::ostream* out) { *out << row.name; }

class GifRefusedTest : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(GifRefusedTest, GivesNoImage) { EXPECT_FALSE(gifImage(GetParam().bytes())); }

INSTANTIATE_TEST_SUITE_P(
    Refused, GifRefusedTest,
    ::testing::Values(
        RefusedCase{"Empty", [] { return std::vector<std::uint8_t>{}; }},
        RefusedCase{"SignatureOnly", [] { return std::vector<std::uint8_t>{'G', 'I', 'F', '8', '9', 'a'}; }},
        RefusedCase{"NotAGif", [] { return std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}; }},
        RefusedCase{"NoFrames",
                    [] {
                      return encodeGif(GifSpec{4, 4, basicPalette(), {}}).bytes;
                    }},
        RefusedCase{"NoFrameDecodes",
                    [] {
                      auto gif = encodeGif(fiveFrames());
                      for (auto offset : gif.frameData) gif.bytes[offset + 1] = gif.bytes[offset + 2] = 0xFF;
                      return gif.bytes;
                    }},
        RefusedCase{"CanvasOverTheLimit",
                    [] {
                      return encodeGif(GifSpec{8192, 4096, basicPalette(), {solidFrame(0, 0, 1, 1, 0)}}).bytes;
                    }}),
    caseName<RefusedCase>);

TEST(GifDecoderTest, FramesBeyondTheMemoryBudgetRefuseTheWholeImage) {
  GifSpec spec{10, 10, basicPalette(), {}};
  for (int i = 0; i < 3; ++i) spec.frames.push_back(solidFrame(0, 0, 1, 1, 0));
  const auto bytes = encodeGif(spec).bytes;  // three frames of 400 bytes each
  EXPECT_FALSE(gif::decode(bytes, {.maxDecodedBytes = 1199}));
  const auto gif = gif::decode(bytes, {.maxDecodedBytes = 1200});
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->frames.size(), 3u);
}

}  // namespace
}  // namespace kiv
