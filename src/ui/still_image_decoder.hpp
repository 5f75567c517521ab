// The first frame of an image file as a still image: PNG and JPEG through
// libpng and libjpeg-turbo, GIF through giflib, WebP (still or animated)
// through libwebp, told apart by their leading bytes, not by file name.
// Safe on any thread.
#pragma once

#include <cstdint>
#include <span>

#include "kiv/platform/ui/image.hpp"

namespace kiv {

// Absent when the format is unknown, the data does not decode, or the
// canvas exceeds gif::kMaxCanvasPixels.
ImageRef decodeFirstFrame(std::span<const std::uint8_t> bytes);

}  // namespace kiv
