#include "gif_writer.hpp"

#include <algorithm>
#include <bit>
#include <memory>
#include <stdexcept>

namespace kiv::testing {
namespace {

int appendOutput(GifFileType* file, const GifByteType* data, int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(file->UserData);
  out->insert(out->end(), data, data + length);
  return length;
}

// giflib wants a power-of-two table; the padding entries are black.
std::shared_ptr<ColorMapObject> makeMap(std::vector<GifColorType> colors) {
  if (colors.empty()) return nullptr;
  colors.resize(std::bit_ceil(std::max<std::size_t>(colors.size(), 2)), GifColorType{0, 0, 0});
  return {GifMakeMapObject(static_cast<int>(colors.size()), colors.data()), GifFreeMapObject};
}

void check(bool ok) {
  if (!ok) throw std::runtime_error("giflib refused to write the test GIF");
}

}  // namespace

std::vector<GifColorType> GifLayout::basicPalette() {
  return {{255, 0, 0},   {0, 255, 0},   {0, 0, 255},   {255, 255, 255},
          {255, 255, 0}, {0, 255, 255}, {255, 0, 255}, {128, 128, 128}};
}

EncodedGif encodeGif(const GifLayout& layout) {
  EncodedGif encoded;
  int error = 0;
  std::unique_ptr<GifFileType, void (*)(GifFileType*)> file(EGifOpen(&encoded.bytes, appendOutput, &error),
                                                            [](GifFileType* f) { EGifCloseFile(f, nullptr); });
  check(file != nullptr);
  EGifSetGifVersion(file.get(), true);
  check(EGifPutScreenDesc(file.get(), layout.width, layout.height, 8, 0, makeMap(layout.globalColors).get()) == GIF_OK);
  for (const auto& frame : layout.frames) {
    if (frame.delayCentiseconds || frame.disposal != DISPOSAL_UNSPECIFIED ||
        frame.transparentIndex != NO_TRANSPARENT_COLOR) {
      const GraphicsControlBlock control{frame.disposal, false, frame.delayCentiseconds.value_or(0),
                                         frame.transparentIndex};
      GifByteType extension[4];
      EGifGCBToExtension(&control, extension);
      check(EGifPutExtension(file.get(), GRAPHICS_EXT_FUNC_CODE, 4, extension) == GIF_OK);
    }
    check(EGifPutImageDesc(file.get(), frame.left, frame.top, frame.width, frame.height, frame.interlaced,
                           makeMap(frame.localColors).get()) == GIF_OK);
    encoded.frameData.push_back(encoded.bytes.size());
    std::vector<GifPixelType> pixels(frame.indices);  // giflib masks them in place
    check(EGifPutLine(file.get(), pixels.data(), static_cast<int>(pixels.size())) == GIF_OK);
  }
  check(EGifCloseFile(file.release(), &error) == GIF_OK);
  return encoded;
}

FrameLayout solidFrame(int left, int top, int width, int height, std::uint8_t index,
                       std::optional<int> delayCentiseconds) {
  FrameLayout frame{left, top, width, height};
  frame.indices.assign(static_cast<std::size_t>(width * height), index);
  frame.delayCentiseconds = delayCentiseconds;
  return frame;
}

int paletteIndexAt(const ImageRef& image, int x, int y) {
  const auto rgba = image->rgba();
  const auto* p = &rgba[(static_cast<std::size_t>(y) * static_cast<std::size_t>(image->width()) + x) * 4];
  if (p[3] == 0) return kClear;
  const auto palette = GifLayout::basicPalette();
  for (std::size_t i = 0; i < palette.size(); ++i) {
    if (p[0] == palette[i].Red && p[1] == palette[i].Green && p[2] == palette[i].Blue && p[3] == 255) {
      return static_cast<int>(i);
    }
  }
  return -2;
}

std::vector<int> paletteIndices(const std::vector<ImageRef>& images) {
  std::vector<int> indices;
  for (const auto& image : images) indices.push_back(paletteIndexAt(image));
  return indices;
}

}  // namespace kiv::testing
