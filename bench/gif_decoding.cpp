// Decoding speed of gifImage(data): a 60-frame 320x240 animation with a
// 256-colour table, every frame covering the whole canvas with a moving
// pattern (the common shape of an exported animation). Reports frames per
// second.
#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "kiv/image_helpers.hpp"

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kFrames = 60;

int appendOutput(GifFileType* file, const GifByteType* data, int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(file->UserData);
  out->insert(out->end(), data, data + length);
  return length;
}

std::vector<std::uint8_t> makeAnimation() {
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
  bool ok = EGifPutScreenDesc(file, kWidth, kHeight, 8, 0, map) == GIF_OK;
  std::vector<GifPixelType> line(kWidth);
  for (int frame = 0; ok && frame < kFrames; ++frame) {
    GraphicsControlBlock control{DISPOSE_DO_NOT, false, 4, NO_TRANSPARENT_COLOR};
    GifByteType extension[4];
    EGifGCBToExtension(&control, extension);
    ok = EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, 4, extension) == GIF_OK &&
         EGifPutImageDesc(file, 0, 0, kWidth, kHeight, false, nullptr) == GIF_OK;
    for (int y = 0; ok && y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        line[static_cast<std::size_t>(x)] = static_cast<GifPixelType>(((x + frame * 4) / 8 + (y / 8) * 3) & 0xFF);
      }
      ok = EGifPutLine(file, line.data(), kWidth) == GIF_OK;
    }
  }
  GifFreeMapObject(map);
  if (EGifCloseFile(file, &error) != GIF_OK || !ok) throw std::runtime_error("encoding failed");
  return bytes;
}

void BM_DecodeSixtyFrameGif(benchmark::State& state) {
  const auto bytes = makeAnimation();
  for (auto _ : state) {
    auto image = kiv::gifImage(bytes);
    if (!image || image->frames().size() != kFrames) state.SkipWithError("decoding failed");
    benchmark::DoNotOptimize(image);
  }
  state.counters["frames_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * kFrames, benchmark::Counter::kIsRate);
  state.counters["file_bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_DecodeSixtyFrameGif)->Unit(benchmark::kMillisecond);

}  // namespace
