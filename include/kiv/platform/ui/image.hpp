// Images as the SDK's view toolkit sees them: immutable handles with a pixel
// size. A still image holds RGBA pixels; an animated image holds its frames
// (each a still image) and one total duration, each frame being shown for
// duration / frame count. A host bridging a phone toolkit converts to and
// from its own image type at the edge.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace kiv {

class Image;
using ImageRef = std::shared_ptr<const Image>;

class Image {
 public:
  // `rgba` holds width * height * 4 bytes, row by row, non-premultiplied.
  // Absent when the sizes do not agree or a side is not positive.
  static ImageRef still(int width, int height, std::vector<std::uint8_t> rgba, double scale = 1.0);
  // Absent without frames. Its pixel size is the first frame's.
  static ImageRef animated(std::vector<ImageRef> frames, double duration);

  int width() const { return width_; }    // pixels
  int height() const { return height_; }  // pixels
  double scale() const { return scale_; }
  // A still image's pixels; an animated image gives its first frame's.
  const std::vector<std::uint8_t>& rgba() const;

  bool isAnimated() const { return !frames_.empty(); }
  const std::vector<ImageRef>& frames() const { return frames_; }  // empty for a still image
  double duration() const { return duration_; }                    // 0 for a still image

 private:
  Image() = default;
  int width_ = 0;
  int height_ = 0;
  double scale_ = 1.0;
  std::vector<std::uint8_t> rgba_;
  std::vector<ImageRef> frames_;
  double duration_ = 0;
};

}  // namespace kiv
