// Real GIF files for the tests, written with giflib's encoder, with where
// each frame's compressed data starts so that a test can damage one frame.
#pragma once

#include <gif_lib.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kiv/platform/ui/image.hpp"

namespace kiv::testing {

struct FrameLayout {
  int left = 0, top = 0, width = 0, height = 0;
  std::vector<std::uint8_t> indices{};  // width * height, row by row as stored (interlaced: pass by pass)
  // A graphics control block is written when any of these three is set.
  std::optional<int> delayCentiseconds{};
  int disposal = DISPOSAL_UNSPECIFIED;
  int transparentIndex = NO_TRANSPARENT_COLOR;
  bool interlaced = false;
  std::vector<GifColorType> localColors{};  // empty: the global table
};

struct GifLayout {
  int width = 0, height = 0;
  std::vector<FrameLayout> frames{};
  std::vector<GifColorType> globalColors = basicPalette();

  // Eight opaque colours: red, green, blue, white, yellow, cyan, magenta, grey.
  static std::vector<GifColorType> basicPalette();
};

struct EncodedGif {
  std::vector<std::uint8_t> bytes;
  // Per frame, the offset of its first data sub-block's length byte; the
  // byte before it is the LZW minimum code size.
  std::vector<std::size_t> frameData;
};

EncodedGif encodeGif(const GifLayout& layout);

// A frame of one colour index over the rectangle.
FrameLayout solidFrame(int left, int top, int width, int height, std::uint8_t index,
                       std::optional<int> delayCentiseconds = std::nullopt);

// The basicPalette() index of a pixel; kClear when fully transparent, -2
// for any other colour.
constexpr int kClear = -1;
int paletteIndexAt(const ImageRef& image, int x = 0, int y = 0);
std::vector<int> paletteIndices(const std::vector<ImageRef>& images);  // of each top-left pixel

}  // namespace kiv::testing
