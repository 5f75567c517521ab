// The still-frame decoder of image sequences (PNG, JPEG, GIF, WebP, told
// apart by their leading bytes) on arbitrary bytes: no crash, leak or
// sanitizer report, and a decoded frame has the pixels its size says.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "ui/gif_decoder.hpp"
#include "ui/still_image_decoder.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const kiv::ImageRef image = kiv::decodeFirstFrame(std::span<const std::uint8_t>(data, size));
  if (!image) return 0;
  const auto pixels = static_cast<std::size_t>(image->width()) * static_cast<std::size_t>(image->height());
  if (image->isAnimated() || pixels == 0 || pixels > kiv::gif::kMaxCanvasPixels) std::abort();
  if (image->rgba().size() != pixels * 4) std::abort();
  return 0;
}
