// PNG (libpng) and JPEG (libjpeg-turbo) decoding for the toolkit's images.
// Pure functions, safe on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "kiv/platform/ui/image.hpp"

namespace kiv {

bool looksLikePng(std::span<const std::uint8_t> bytes);
bool looksLikeJpeg(std::span<const std::uint8_t> bytes);

// The image as straight RGBA (grey, palette and 16-bit PNGs are converted,
// a PNG's gamma is left as stored; an animated PNG gives its default
// image). Absent when the bytes do not decode completely, or the header
// claims more than `maxPixels` pixels: that is checked before any pixel
// memory is taken.
ImageRef decodePngImage(std::span<const std::uint8_t> bytes, std::size_t maxPixels);

// The image as opaque RGBA (greyscale and CMYK are converted). Absent when
// the bytes do not decode or the header claims more than `maxPixels`
// pixels. A file cut short inside its scan data is absent too, not padded
// with grey as libjpeg would.
ImageRef decodeJpegImage(std::span<const std::uint8_t> bytes, std::size_t maxPixels);

}  // namespace kiv
