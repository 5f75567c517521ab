// gifImage(data) on arbitrary bytes: no crash, leak or sanitizer report, and
// whatever comes back is a consistent animated image.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "kiv/image_helpers.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const kiv::ImageRef image = kiv::gifImage(std::span<const std::uint8_t>(data, size));
  if (!image) return 0;
  if (!image->isAnimated() || image->frames().empty() || !(image->duration() > 0)) std::abort();
  for (const auto& frame : image->frames()) {
    if (!frame || frame->width() != image->width() || frame->height() != image->height()) std::abort();
    if (frame->rgba().size() != static_cast<std::size_t>(frame->width()) * frame->height() * 4) std::abort();
  }
  return 0;
}
