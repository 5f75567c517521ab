// WebP decoding for the toolkit's images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "kiv/platform/ui/image.hpp"

namespace kiv {

bool looksLikeWebP(std::span<const std::uint8_t> bytes);

// The first frame of a still or animated WebP, composed on the full canvas,
// as a still image; absent when the bytes do not decode or the canvas holds
// more than `maxPixels` pixels. The decoder takes the whole canvas as soon
// as it is created, so the size is checked from the header first.
ImageRef decodeFirstWebPFrame(std::span<const std::uint8_t> bytes,
                              std::size_t maxPixels = std::numeric_limits<std::size_t>::max());

}  // namespace kiv
