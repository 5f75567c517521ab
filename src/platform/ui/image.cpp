#include "kiv/platform/ui/image.hpp"

namespace kiv {

ImageRef Image::still(int width, int height, std::vector<std::uint8_t> rgba, double scale) {
  if (width <= 0 || height <= 0) return nullptr;
  if (rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) return nullptr;
  auto image = std::shared_ptr<Image>(new Image());
  image->width_ = width;
  image->height_ = height;
  image->scale_ = scale;
  image->rgba_ = std::move(rgba);
  return image;
}

ImageRef Image::animated(std::vector<ImageRef> frames, double duration) {
  if (frames.empty() || !frames.front()) return nullptr;
  auto image = std::shared_ptr<Image>(new Image());
  image->width_ = frames.front()->width();
  image->height_ = frames.front()->height();
  image->scale_ = frames.front()->scale();
  image->frames_ = std::move(frames);
  image->duration_ = duration;
  return image;
}

const std::vector<std::uint8_t>& Image::rgba() const { return frames_.empty() ? rgba_ : frames_.front()->rgba(); }

}  // namespace kiv
