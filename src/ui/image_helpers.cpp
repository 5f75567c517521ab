#include "kiv/image_helpers.hpp"

#include <utility>

#include "ui/gif_decoder.hpp"

namespace kiv {

ImageRef gifImage(std::span<const std::uint8_t> data) {
  auto decoded = gif::decode(data);
  if (!decoded || decoded->frames.empty()) return nullptr;
  std::vector<ImageRef> frames;
  frames.reserve(decoded->frames.size());
  double duration = 0;
  for (auto& frame : decoded->frames) {
    duration += gif::frameDelay(frame.delays);
    frames.push_back(std::move(frame.image));
  }
  return Image::animated(std::move(frames), duration);
}

}  // namespace kiv
