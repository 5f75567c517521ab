#include "ui/still_image_decoder.hpp"

#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <memory>
#include <vector>

#include "ui/gif_decoder.hpp"

namespace kiv {
namespace {

bool looksLikeWebP(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
         std::memcmp(bytes.data() + 8, "WEBP", 4) == 0;
}

struct AnimDecoderDeleter {
  void operator()(WebPAnimDecoder* decoder) const { WebPAnimDecoderDelete(decoder); }
};

ImageRef decodeWebPFirstFrame(std::span<const std::uint8_t> bytes) {
  // The size check comes first: the decoder allocates the whole canvas as
  // soon as it is created.
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) return nullptr;
  if (features.width <= 0 || features.height <= 0) return nullptr;
  if (static_cast<std::size_t>(features.width) * static_cast<std::size_t>(features.height) > gif::kMaxCanvasPixels) {
    return nullptr;
  }
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) return nullptr;
  options.color_mode = MODE_RGBA;  // not premultiplied, as Image expects
  options.use_threads = 0;
  const WebPData data{bytes.data(), bytes.size()};
  std::unique_ptr<WebPAnimDecoder, AnimDecoderDeleter> decoder(WebPAnimDecoderNew(&data, &options));
  if (!decoder) return nullptr;
  WebPAnimInfo info{};
  std::uint8_t* pixels = nullptr;
  int timestamp = 0;
  if (!WebPAnimDecoderGetInfo(decoder.get(), &info) || !WebPAnimDecoderGetNext(decoder.get(), &pixels, &timestamp)) {
    return nullptr;
  }
  const std::size_t size = std::size_t{info.canvas_width} * info.canvas_height * 4;
  return Image::still(static_cast<int>(info.canvas_width), static_cast<int>(info.canvas_height),
                      std::vector<std::uint8_t>(pixels, pixels + size));
}

}  // namespace

ImageRef decodeFirstFrame(std::span<const std::uint8_t> bytes) {
  if (gif::looksLikeGif(bytes)) {
    auto decoded = gif::decode(bytes, gif::DecodeOptions{.firstFrameOnly = true});
    if (!decoded || decoded->frames.empty()) return nullptr;
    return decoded->frames.front().image;
  }
  if (looksLikeWebP(bytes)) return decodeWebPFirstFrame(bytes);
  return nullptr;
}

}  // namespace kiv
