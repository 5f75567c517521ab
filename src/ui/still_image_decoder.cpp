#include "ui/still_image_decoder.hpp"

#include "platform/ui/png_jpeg_image.hpp"
#include "platform/ui/webp_image.hpp"
#include "ui/gif_decoder.hpp"

namespace kiv {

ImageRef decodeFirstFrame(std::span<const std::uint8_t> bytes) {
  if (looksLikePng(bytes)) return decodePngImage(bytes, gif::kMaxCanvasPixels);
  if (looksLikeJpeg(bytes)) return decodeJpegImage(bytes, gif::kMaxCanvasPixels);
  if (gif::looksLikeGif(bytes)) {
    auto decoded = gif::decode(bytes, gif::DecodeOptions{.firstFrameOnly = true});
    if (!decoded || decoded->frames.empty()) return nullptr;
    return decoded->frames.front().image;
  }
  if (looksLikeWebP(bytes)) return decodeFirstWebPFrame(bytes, gif::kMaxCanvasPixels);
  return nullptr;
}

}  // namespace kiv
