#include "gif_writer.hpp"

#include <memory>
#include <stdexcept>

namespace kiv::testing {
namespace {

int appendOutput(GifFileType* file, const GifByteType* data, int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(file->UserData);
  out->insert(out->end(), data, data + length);
  return length;
}

struct MapDeleter {
  void operator()(ColorMapObject* map) const { GifFreeMapObject(map); }
};
using ColorMap = std::unique_ptr<ColorMapObject, MapDeleter>;

// giflib wants a power-of-two table; the padding entries are black.
ColorMap makeMap(const std::vector<Rgb>& colors) {
  if (colors.empty()) return nullptr;
  int size = 2;
  while (size < static_cast<int>(colors.size())) size *= 2;
  std::vector<GifColorType> entries(static_cast<std::size_t>(size), GifColorType{0, 0, 0});
  for (std::size_t i = 0; i < colors.size(); ++i) entries[i] = {colors[i].red, colors[i].green, colors[i].blue};
  return ColorMap(GifMakeMapObject(size, entries.data()));
}

void check(int status, const char* what) {
  if (status == GIF_ERROR) throw std::runtime_error(std::string("giflib refused ") + what);
}

}  // namespace

EncodedGif encodeGif(const GifSpec& spec) {
  EncodedGif encoded;
  int error = 0;
  GifFileType* file = EGifOpen(&encoded.bytes, appendOutput, &error);
  if (file == nullptr) throw std::runtime_error("EGifOpen failed");
  EGifSetGifVersion(file, true);
  const ColorMap global = makeMap(spec.globalColors);
  check(EGifPutScreenDesc(file, spec.width, spec.height, 8, 0, global.get()), "the screen descriptor");
  for (const auto& frame : spec.frames) {
    if (frame.delayCentiseconds || frame.disposal != DISPOSAL_UNSPECIFIED ||
        frame.transparentIndex != NO_TRANSPARENT_COLOR) {
      GraphicsControlBlock control{};
      control.DisposalMode = frame.disposal;
      control.DelayTime = frame.delayCentiseconds.value_or(0);
      control.TransparentColor = frame.transparentIndex;
      GifByteType extension[4];
      const auto length = EGifGCBToExtension(&control, extension);
      check(EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension), "a control block");
    }
    const ColorMap local = makeMap(frame.localColors);
    check(EGifPutImageDesc(file, frame.left, frame.top, frame.width, frame.height, frame.interlaced, local.get()),
          "an image descriptor");
    encoded.frameData.push_back(encoded.bytes.size());
    std::vector<int> rows;
    if (frame.interlaced) {
      const int start[] = {0, 4, 2, 1};
      const int step[] = {8, 8, 4, 2};
      for (int pass = 0; pass < 4; ++pass) {
        for (int row = start[pass]; row < frame.height; row += step[pass]) rows.push_back(row);
      }
    } else {
      for (int row = 0; row < frame.height; ++row) rows.push_back(row);
    }
    for (int row : rows) {
      std::vector<GifPixelType> line(frame.indices.begin() + row * frame.width,
                                     frame.indices.begin() + (row + 1) * frame.width);
      check(EGifPutLine(file, line.data(), frame.width), "a line");
    }
  }
  check(EGifCloseFile(file, &error), "to close");
  return encoded;
}

GifFrameSpec solidFrame(int left, int top, int width, int height, std::uint8_t index,
                        std::optional<int> delayCentiseconds) {
  GifFrameSpec frame;
  frame.left = left;
  frame.top = top;
  frame.width = width;
  frame.height = height;
  frame.indices.assign(static_cast<std::size_t>(width * height), index);
  frame.delayCentiseconds = delayCentiseconds;
  return frame;
}

std::vector<Rgb> basicPalette() {
  return {{255, 0, 0},   {0, 255, 0},   {0, 0, 255},   {255, 255, 255},
          {255, 255, 0}, {0, 255, 255}, {255, 0, 255}, {128, 128, 128}};
}

}  // namespace kiv::testing
