#include "kiv/platform/ui/image.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>

namespace kiv {
namespace {

bool sidesAgree(int width, int height, std::size_t count, std::size_t perPixel) {
  return width > 0 && height > 0 &&
         count == static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * perPixel;
}

template <typename Index>
void compose(const std::vector<Index>& indices, const Palette& palette, std::vector<std::uint8_t>& out) {
  out.resize(indices.size() * 4);
  std::uint8_t* target = out.data();
  for (const Index index : indices) {
    std::memcpy(target, &palette[static_cast<std::size_t>(index) * 4], 4);
    target += 4;
  }
}

}  // namespace

ImageRef Image::still(int width, int height, std::vector<std::uint8_t> rgba, double scale) {
  if (!sidesAgree(width, height, rgba.size(), 4)) return nullptr;
  auto image = std::shared_ptr<Image>(new Image());
  image->width_ = width;
  image->height_ = height;
  image->scale_ = scale;
  image->rgba_ = std::move(rgba);
  return image;
}

template <typename Index>
ImageRef Image::makeIndexed(int width, int height, PaletteRef palette, std::vector<Index> indices) {
  if (!palette || palette->empty() || palette->size() % 4 != 0) return nullptr;
  if (!sidesAgree(width, height, indices.size(), 1)) return nullptr;
  const std::size_t colors = palette->size() / 4;
  if (colors <= std::numeric_limits<Index>::max()) {
    // A plain loop: this runs over every pixel of every frame of an animation.
    Index highest = 0;
    for (const Index* index = indices.data(); index != indices.data() + indices.size(); ++index) {
      if (*index > highest) highest = *index;
    }
    if (highest >= colors) return nullptr;
  }
  auto image = std::shared_ptr<Image>(new Image());
  image->width_ = width;
  image->height_ = height;
  image->palette_ = std::move(palette);
  if constexpr (sizeof(Index) == 1) {
    image->indices8_ = std::move(indices);
  } else {
    image->indices16_ = std::move(indices);
  }
  return image;
}

ImageRef Image::indexed(int width, int height, PaletteRef palette, std::vector<std::uint8_t> indices) {
  return makeIndexed(width, height, std::move(palette), std::move(indices));
}

ImageRef Image::indexed(int width, int height, PaletteRef palette, std::vector<std::uint16_t> indices) {
  return makeIndexed(width, height, std::move(palette), std::move(indices));
}

ImageRef Image::animated(std::vector<ImageRef> frames, double duration) {
  if (frames.empty() || std::ranges::find(frames, nullptr) != frames.end()) return nullptr;
  auto image = std::shared_ptr<Image>(new Image());
  image->width_ = frames.front()->width();
  image->height_ = frames.front()->height();
  image->scale_ = frames.front()->scale();
  image->frames_ = std::move(frames);
  image->duration_ = duration;
  return image;
}

std::vector<std::uint8_t> Image::rgba() const {
  if (!frames_.empty()) return frames_.front()->rgba();
  if (!palette_) return rgba_;
  std::vector<std::uint8_t> out;
  if (!indices8_.empty()) compose(indices8_, *palette_, out);
  if (!indices16_.empty()) compose(indices16_, *palette_, out);
  return out;
}

std::size_t Image::byteCount() const {
  std::set<const Palette*> palettes;
  std::size_t bytes = 0;
  const auto own = [&](const Image& image) {
    bytes += image.rgba_.size() + image.indices8_.size() + image.indices16_.size() * 2;
    if (image.palette_ && palettes.insert(image.palette_.get()).second) bytes += image.palette_->size();
  };
  own(*this);
  for (const auto& frame : frames_) own(*frame);
  return bytes;
}

}  // namespace kiv
