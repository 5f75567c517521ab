// Images as the SDK's view toolkit sees them: immutable handles with a pixel
// size. A still image holds its pixels either as RGBA or as colour indices
// into a palette; an animated image holds its frames (each a still image)
// and one total duration, each frame being shown for duration / frame
// count. A host bridging a phone toolkit converts to and from its own image
// type at the edge, one frame at a time.
//
// What an image costs in memory (byteCount()): an RGBA still holds 4 bytes
// per pixel; an indexed still 1 byte per pixel while its palette has at most
// 256 colours, 2 bytes above that, plus 4 bytes per palette colour. Frames
// of one animation share their palette, which is counted once. An indexed
// image is turned into RGBA only when rgba() is asked, so drawing an
// animation holds one frame's RGBA at a time.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kiv {

class Image;
using ImageRef = std::shared_ptr<const Image>;

// RGBA colours, 4 bytes each, non-premultiplied; at most 65536 of them.
using Palette = std::vector<std::uint8_t>;
using PaletteRef = std::shared_ptr<const Palette>;

class Image {
 public:
  // `rgba` holds width * height * 4 bytes, row by row, non-premultiplied.
  // Absent when the sizes do not agree or a side is not positive.
  static ImageRef still(int width, int height, std::vector<std::uint8_t> rgba, double scale = 1.0);
  // `indices` holds width * height palette indices, row by row. Absent when
  // the sizes do not agree, a side is not positive, the palette is missing
  // or an index lies outside it.
  static ImageRef indexed(int width, int height, PaletteRef palette, std::vector<std::uint8_t> indices);
  static ImageRef indexed(int width, int height, PaletteRef palette, std::vector<std::uint16_t> indices);
  // Absent without frames. Its pixel size is the first frame's.
  static ImageRef animated(std::vector<ImageRef> frames, double duration);

  int width() const { return width_; }    // pixels
  int height() const { return height_; }  // pixels
  double scale() const { return scale_; }
  // The pixels as width * height * 4 bytes of RGBA, composed from the
  // palette on each call for an indexed image; an animated image gives its
  // first frame's.
  std::vector<std::uint8_t> rgba() const;
  // The bytes this image's pixels keep alive (see the top of this file).
  std::size_t byteCount() const;

  bool isIndexed() const { return palette_ != nullptr; }
  bool isAnimated() const { return !frames_.empty(); }
  const std::vector<ImageRef>& frames() const { return frames_; }  // empty for a still image
  double duration() const { return duration_; }                    // 0 for a still image

 private:
  Image() = default;
  template <typename Index>
  static ImageRef makeIndexed(int width, int height, PaletteRef palette, std::vector<Index> indices);

  int width_ = 0;
  int height_ = 0;
  double scale_ = 1.0;
  std::vector<std::uint8_t> rgba_;
  PaletteRef palette_;
  std::vector<std::uint8_t> indices8_;
  std::vector<std::uint16_t> indices16_;
  std::vector<ImageRef> frames_;
  double duration_ = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
