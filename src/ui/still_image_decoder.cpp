#include "ui/still_image_decoder.hpp"

#include <webp/decode.h>

#include <cstring>

#include "platform/ui/webp_image.hpp"
#include "ui/gif_decoder.hpp"

namespace kiv {
namespace {

bool looksLikeWebP(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
         std::memcmp(bytes.data() + 8, "WEBP", 4) == 0;
}

// The WebP decoder allocates the whole canvas as soon as it is created, and
// a header may claim 16383 x 16383: the canvas size is checked first.
bool webPCanvasWithinLimit(std::span<const std::uint8_t> bytes) {
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) return false;
  return features.width > 0 && features.height > 0 &&
         static_cast<std::size_t>(features.width) * static_cast<std::size_t>(features.height) <= gif::kMaxCanvasPixels;
}

}  // namespace

ImageRef decodeFirstFrame(std::span<const std::uint8_t> bytes) {
  if (gif::looksLikeGif(bytes)) {
    auto decoded = gif::decode(bytes, gif::DecodeOptions{.firstFrameOnly = true});
    if (!decoded || decoded->frames.empty()) return nullptr;
    return decoded->frames.front().image;
  }
  if (looksLikeWebP(bytes) && webPCanvasWithinLimit(bytes)) return decodeFirstWebPFrame(bytes);
  return nullptr;
}

}  // namespace kiv
