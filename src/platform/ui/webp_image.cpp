#include "platform/ui/webp_image.hpp"

#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <memory>
#include <vector>

namespace kiv {
namespace {
struct AnimDecoderDeleter {
  void operator()(WebPAnimDecoder* d) const { WebPAnimDecoderDelete(d); }
};
}  // namespace

bool looksLikeWebP(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
         std::memcmp(bytes.data() + 8, "WEBP", 4) == 0;
}

ImageRef decodeFirstWebPFrame(std::span<const std::uint8_t> bytes, std::size_t maxPixels) {
  if (bytes.empty()) return nullptr;
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) return nullptr;
  if (features.width <= 0 || features.height <= 0 ||
      static_cast<std::size_t>(features.width) > maxPixels / static_cast<std::size_t>(features.height)) {
    return nullptr;
  }
  const WebPData data{bytes.data(), bytes.size()};
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) return nullptr;
  options.color_mode = MODE_RGBA;  // straight alpha, as Image keeps it
  options.use_threads = 0;
  // The animation decoder also takes still images, and composes an animated
  // one's first frame onto its canvas (a first frame may cover only part).
  std::unique_ptr<WebPAnimDecoder, AnimDecoderDeleter> decoder(WebPAnimDecoderNew(&data, &options));
  if (!decoder) return nullptr;
  WebPAnimInfo info;
  if (!WebPAnimDecoderGetInfo(decoder.get(), &info) || info.canvas_width == 0 || info.canvas_height == 0) {
    return nullptr;
  }
  std::uint8_t* pixels = nullptr;
  int timestamp = 0;
  if (!WebPAnimDecoderGetNext(decoder.get(), &pixels, &timestamp) || !pixels) return nullptr;
  const std::size_t size = static_cast<std::size_t>(info.canvas_width) * info.canvas_height * 4;
  std::vector<std::uint8_t> rgba(pixels, pixels + size);
  return Image::still(static_cast<int>(info.canvas_width), static_cast<int>(info.canvas_height), std::move(rgba));
}

}  // namespace kiv
