// WebP decoding for the toolkit's images.
#pragma once

#include <cstdint>
#include <span>

#include "kiv/platform/ui/image.hpp"

namespace kiv {

// The first frame of a still or animated WebP, composed on the full canvas,
// as a still image; absent when the bytes do not decode.
ImageRef decodeFirstWebPFrame(std::span<const std::uint8_t> bytes);

}  // namespace kiv
