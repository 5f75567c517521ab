// Draws the loading spinner (a white ring with a gap whose opacity fades
// toward the gap) and writes it as a lossless WebP. Run by hand when the
// artwork changes; its output is committed as resources/loading_spinner_1.webp.
//
//   g++ -std=c++20 -O2 scripts/make_loading_spinner.cpp $(pkg-config --cflags --libs libwebp) -o /tmp/spinner
//   /tmp/spinner resources/loading_spinner_1.webp
#include <webp/encode.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s output.webp\n", argv[0]);
    return 2;
  }
  constexpr int kSide = 64;
  constexpr double kOuter = 28.0;
  constexpr double kInner = 21.0;
  constexpr double kGap = std::numbers::pi / 3;  // the last sixth of the turn stays empty
  constexpr int kSamples = 4;                     // per axis, for smooth edges
  std::vector<std::uint8_t> rgba(kSide * kSide * 4, 0);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      double coverage = 0;
      for (int sy = 0; sy < kSamples; ++sy) {
        for (int sx = 0; sx < kSamples; ++sx) {
          const double px = x + (sx + 0.5) / kSamples - kSide / 2.0;
          const double py = y + (sy + 0.5) / kSamples - kSide / 2.0;
          const double r = std::hypot(px, py);
          if (r < kInner || r > kOuter) continue;
          // Angle from twelve o'clock, clockwise, in [0, 2π).
          double a = std::atan2(px, -py);
          if (a < 0) a += 2 * std::numbers::pi;
          const double span = 2 * std::numbers::pi - kGap;
          if (a > span) continue;
          coverage += 0.15 + 0.85 * (1.0 - a / span);  // bright head, fading tail
        }
      }
      coverage /= kSamples * kSamples;
      auto* p = &rgba[(y * kSide + x) * 4];
      p[0] = p[1] = p[2] = 255;
      p[3] = static_cast<std::uint8_t>(std::lround(coverage * 255));
    }
  }
  std::uint8_t* out = nullptr;
  const std::size_t size = WebPEncodeLosslessRGBA(rgba.data(), kSide, kSide, kSide * 4, &out);
  if (size == 0) return 1;
  std::FILE* f = std::fopen(argv[1], "wb");
  if (!f) return 1;
  const bool ok = std::fwrite(out, 1, size, f) == size;
  WebPFree(out);
  return std::fclose(f) == 0 && ok ? 0 : 1;
}
