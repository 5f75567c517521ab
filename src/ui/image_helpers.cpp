#include "kiv/image_helpers.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "ui/gif_decoder.hpp"
#include "ui/still_image_decoder.hpp"

namespace kiv {
namespace {
constexpr std::string_view kGifExtension = "gif";
}  // namespace

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

ImageRef gifImage(std::string_view name, const ResourceBundle& bundle) {
  const auto bytes = bundle.data(name, kGifExtension);
  if (!bytes) return nullptr;
  return gifImage(*bytes);
}

std::optional<std::vector<ImageRef>> framedImageSequence(std::string_view folder, int frameCount, bool reversed,
                                                         std::string_view fileExtension, const ResourceBundle& bundle) {
  if (frameCount <= 0) return std::nullopt;
  std::vector<ImageRef> frames;
  frames.reserve(static_cast<std::size_t>(frameCount));
  for (int k = 1; k <= frameCount; ++k) {
    const std::string name = std::string(folder) + "_" + std::to_string(k);
    const auto bytes = bundle.data(name, fileExtension);
    if (!bytes) return std::nullopt;
    auto frame = decodeFirstFrame(*bytes);
    if (!frame) return std::nullopt;
    frames.push_back(std::move(frame));
  }
  if (reversed) std::reverse(frames.begin(), frames.end());
  return frames;
}

}  // namespace kiv
