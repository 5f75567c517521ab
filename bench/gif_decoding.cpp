// Decoding speed of gifImage(data): animations with a 256-colour table,
// every frame covering the whole canvas with a moving pattern (the common
// shape of an exported animation): 60 frames of 320x240, and twelve seconds
// of 1280x720 at ten frames a second. Reports frames per second and the
// bytes the decoded image holds.
#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "kiv/image_helpers.hpp"

namespace {

int appendOutput(GifFileType* file, const GifByteType* data, int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(file->UserData);
  out->insert(out->end(), data, data + length);
  return length;
}

std::vector<std::uint8_t> makeAnimation(int width, int height, int frames) {
  std::vector<std::uint8_t> bytes;
  int error = 0;
  GifFileType* file = EGifOpen(&bytes, appendOutput, &error);
  if (file == nullptr) throw std::runtime_error("EGifOpen failed");
  EGifSetGifVersion(file, true);
  std::vector<GifColorType> colors(256);
  for (int i = 0; i < 256; ++i) {
    colors[static_cast<std::size_t>(i)] = {static_cast<GifByteType>(i), static_cast<GifByteType>(255 - i),
                                           static_cast<GifByteType>((i * 7) & 0xFF)};
  }
  ColorMapObject* map = GifMakeMapObject(256, colors.data());
  bool ok = EGifPutScreenDesc(file, width, height, 8, 0, map) == GIF_OK;
  std::vector<GifPixelType> line(static_cast<std::size_t>(width));
  for (int frame = 0; ok && frame < frames; ++frame) {
    GraphicsControlBlock control{DISPOSE_DO_NOT, false, 4, NO_TRANSPARENT_COLOR};
    GifByteType extension[4];
    EGifGCBToExtension(&control, extension);
    ok = EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, 4, extension) == GIF_OK &&
         EGifPutImageDesc(file, 0, 0, width, height, false, nullptr) == GIF_OK;
    for (int y = 0; ok && y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        line[static_cast<std::size_t>(x)] = static_cast<GifPixelType>(((x + frame * 4) / 8 + (y / 8) * 3) & 0xFF);
      }
      ok = EGifPutLine(file, line.data(), width) == GIF_OK;
    }
  }
  GifFreeMapObject(map);
  if (EGifCloseFile(file, &error) != GIF_OK || !ok) throw std::runtime_error("encoding failed");
  return bytes;
}

void BM_DecodeGif(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const auto frames = static_cast<std::size_t>(state.range(2));
  const auto bytes = makeAnimation(width, height, static_cast<int>(frames));
  std::size_t held = 0;
  for (auto _ : state) {
    auto image = kiv::gifImage(bytes);
    if (!image || image->frames().size() != frames) state.SkipWithError("decoding failed");
    held = image ? image->byteCount() : 0;
    benchmark::DoNotOptimize(image);
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations() * frames), benchmark::Counter::kIsRate);
  state.counters["file_bytes"] = static_cast<double>(bytes.size());
  state.counters["held_bytes"] = static_cast<double>(held);
}
BENCHMARK(BM_DecodeGif)->Args({320, 240, 60})->Args({1280, 720, 120})->Unit(benchmark::kMillisecond);

}  // namespace
