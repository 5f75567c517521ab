// Writes real GIF files for the tests with giflib's encoder, and keeps where
// each frame's compressed data starts so a test can damage one frame.
#pragma once

#include <gif_lib.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace kiv::testing {

struct Rgb {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;
};

struct GifFrameSpec {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> indices;  // width * height, row by row
  // A graphics control block is written when any of these three is set.
  std::optional<int> delayCentiseconds;
  int disposal = DISPOSAL_UNSPECIFIED;
  int transparentIndex = NO_TRANSPARENT_COLOR;
  bool interlaced = false;
  std::vector<Rgb> localColors;  // empty: the frame uses the global table
};

struct GifSpec {
  int width = 0;
  int height = 0;
  std::vector<Rgb> globalColors;
  std::vector<GifFrameSpec> frames;
};

struct EncodedGif {
  std::vector<std::uint8_t> bytes;
  // Per frame, the offset of its first data sub-block's length byte (the
  // byte before it is the LZW minimum code size).
  std::vector<std::size_t> frameData;
};

EncodedGif encodeGif(const GifSpec& spec);

// A frame of one colour index over the rectangle.
GifFrameSpec solidFrame(int left, int top, int width, int height, std::uint8_t index,
                        std::optional<int> delayCentiseconds = std::nullopt);

// Eight distinct opaque colours: red, green, blue, white, yellow, cyan, magenta, grey.
std::vector<Rgb> basicPalette();

}  // namespace kiv::testing
