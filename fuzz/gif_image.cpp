// gifImage(data) on arbitrary bytes: no crash, leak or sanitizer report, and
// whatever comes back is a consistent animated image whose frames compose.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "kiv/image_helpers.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const kiv::ImageRef image = kiv::gifImage(std::span<const std::uint8_t>(data, size));
  if (!image) return 0;
  if (!image->isAnimated() || image->frames().empty() || !(image->duration() > 0)) std::abort();
  const auto pixels = static_cast<std::size_t>(image->width()) * static_cast<std::size_t>(image->height());
  if (image->byteCount() > kiv::kGifImageMaxBytes + 65536 * 4) std::abort();
  for (const auto& frame : image->frames()) {
    if (!frame || !frame->isIndexed() || frame->width() != image->width() || frame->height() != image->height()) {
      std::abort();
    }
  }
  // Composing every frame would make each run as slow as the biggest image:
  // the first and the last are enough to read every palette entry path.
  if (image->frames().front()->rgba().size() != pixels * 4) std::abort();
  if (image->frames().back()->rgba().size() != pixels * 4) std::abort();
  return 0;
}
