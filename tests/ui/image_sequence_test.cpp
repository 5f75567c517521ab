#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <webp/encode.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "gif_writer.hpp"
#include "kiv/image_helpers.hpp"
#include "support/child_process.hpp"
#include "ui/still_image_decoder.hpp"

namespace kiv {
namespace {

using testing::encodeGif;
using testing::GifLayout;
using testing::paletteIndices;
using testing::solidFrame;

// 2x2 pixels of one basicPalette() colour.
std::vector<std::uint8_t> solidRgba(std::uint8_t color) {
  const auto rgb = GifLayout::basicPalette()[color];
  std::vector<std::uint8_t> rgba;
  for (int i = 0; i < 4; ++i) rgba.insert(rgba.end(), {rgb.Red, rgb.Green, rgb.Blue, 255});
  return rgba;
}

std::vector<std::uint8_t> encodePng(std::uint8_t color) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = png.height = 2;
  png.format = PNG_FORMAT_RGBA;
  const auto rgba = solidRgba(color);
  png_alloc_size_t size = 0;
  png_image_write_to_memory(&png, nullptr, &size, 0, rgba.data(), 0, nullptr);
  std::vector<std::uint8_t> out(size);
  if (!png_image_write_to_memory(&png, out.data(), &size, 0, rgba.data(), 0, nullptr)) out.clear();
  out.resize(size);
  return out;
}

std::vector<std::uint8_t> encodeJpeg(std::uint8_t color, int side = 2) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = info.image_height = static_cast<JDIMENSION>(side);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  const auto rgb = GifLayout::basicPalette()[color];
  std::vector<std::uint8_t> row;
  for (int x = 0; x < side; ++x) row.insert(row.end(), {rgb.Red, rgb.Green, rgb.Blue});
  while (info.next_scanline < info.image_height) {
    JSAMPROW line = row.data();
    jpeg_write_scanlines(&info, &line, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::vector<std::uint8_t> out(buffer, buffer + size);
  std::free(buffer);
  return out;
}

// A bundle in a throw-away directory, and writers of 2x2 frames of one
// basicPalette() colour.
class BundleTest : public ::testing::Test {
 public:
  void write(const std::string& file, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::create_directories((dir_.path() / file).parent_path());
    std::ofstream(dir_.path() / file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  void writeGif(const std::string& file, std::uint8_t color, int frames = 1) {
    GifLayout layout{2, 2};
    for (int i = 0; i < frames; ++i) layout.frames.push_back(solidFrame(0, 0, 2, 2, color, 5));
    write(file, encodeGif(layout).bytes);
  }

  void writeWebP(const std::string& file, std::uint8_t color) {
    const auto rgba = solidRgba(color);
    std::uint8_t* encoded = nullptr;
    const std::size_t size = WebPEncodeLosslessRGBA(rgba.data(), 2, 2, 8, &encoded);
    write(file, std::vector<std::uint8_t>(encoded, encoded + size));
    WebPFree(encoded);
  }

  const testing::TemporaryDirectory dir_;
  const ResourceBundleRef bundle_ = ResourceBundle::make(dir_.path(), "com.example.host");
};

// Frames are the first image of each numbered file: WebP, PNG, JPEG or the
// first frame of a GIF, told apart by content rather than by extension.
TEST_F(BundleTest, SequenceLoadsNumberedStillFramesInOrderOrReversed) {
  for (int k = 1; k <= 4; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k), k);
  EXPECT_EQ(paletteIndices(framedImageSequence("loading", 3, false, "gif", *bundle_).value()),
            (std::vector<int>{1, 2, 3}));
  const auto backward = framedImageSequence("loading", 3, true, "gif", *bundle_).value();
  EXPECT_EQ(paletteIndices(backward), (std::vector<int>{3, 2, 1}));
  EXPECT_FALSE(backward.front()->isAnimated());

  writeWebP("frames/spin_1.webp", 5);
  writeWebP("frames/spin_2.webp", 6);
  EXPECT_EQ(paletteIndices(framedImageSequence("frames/spin", 2, false, "webp", *bundle_).value()),
            (std::vector<int>{5, 6}));

  write("walk_1.png", encodePng(4));
  write("walk_2.png", encodePng(6));
  write("walk_3.png", encodeJpeg(2));
  const auto walk = framedImageSequence("walk", 3, true, "png", *bundle_).value();
  ASSERT_EQ(walk.size(), 3u);
  EXPECT_EQ(paletteIndices({walk[1], walk[2]}), (std::vector<int>{6, 4}));
  const auto jpeg = walk.front()->rgba();  // lossy: blue, near enough
  ASSERT_EQ(jpeg.size(), 16u);
  EXPECT_TRUE(jpeg[0] < 8 && jpeg[1] < 8 && jpeg[2] > 247 && jpeg[3] == 255);
}

// Damaged or hostile still files decode as nothing (and, under the
// sanitizers, without reading or writing out of bounds).
TEST(StillImageDecoderTest, DamagedStillFramesDoNotDecode) {
  const auto png = encodePng(1);
  const auto jpeg = encodeJpeg(1, 16);
  const auto webp = *ResourceBundle::sdk()->data("loading_spinner_1", "webp");
  ASSERT_TRUE(decodeFirstFrame(png));
  ASSERT_TRUE(decodeFirstFrame(jpeg));
  ASSERT_TRUE(decodeFirstFrame(webp));
  const auto withPngSize = [&](std::uint32_t side) {
    auto bytes = png;  // IHDR: width at 16, height at 20, CRC of bytes 12..28 at 29
    for (int at : {16, 20}) {
      for (int i = 0; i < 4; ++i)
        bytes[static_cast<std::size_t>(at + i)] = static_cast<std::uint8_t>(side >> (24 - 8 * i));
    }
    const auto crc = crc32(0, bytes.data() + 12, 17);
    for (int i = 0; i < 4; ++i)
      bytes[static_cast<std::size_t>(29 + i)] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
    return bytes;
  };
  const auto withJpegSize = [&](std::uint16_t side) {
    auto bytes = jpeg;  // the frame header: FF C0, length, precision, height, width
    for (std::size_t i = 2; i + 8 < bytes.size(); ++i) {
      if (bytes[i] != 0xFF || bytes[i + 1] != 0xC0) continue;
      for (std::size_t at : {i + 5, i + 7}) {
        bytes[at] = static_cast<std::uint8_t>(side >> 8);
        bytes[at + 1] = static_cast<std::uint8_t>(side & 0xFF);
      }
      break;
    }
    return bytes;
  };
  const auto cut = [](std::vector<std::uint8_t> bytes, std::size_t keep) {
    bytes.resize(keep);
    return bytes;
  };
  std::size_t scanStart = 0;  // just past the scan header (FF DA, length)
  for (std::size_t i = 2; i + 3 < jpeg.size() && scanStart == 0; ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) scanStart = i + 2 + (std::size_t{jpeg[i + 2]} << 8 | jpeg[i + 3]);
  }
  ASSERT_GT(scanStart, 0u);
  auto badCrc = png;
  badCrc[png.size() - 20] ^= 0x55;  // inside the image data chunk
  const struct {
    const char* name;
    std::vector<std::uint8_t> bytes;
  } rows[] = {
      {"png cut inside its data", cut(png, png.size() - 16)},
      {"png signature only", cut(png, 8)},
      {"png data damaged", badCrc},
      {"png over 4096 x 4096", withPngSize(4097)},
      {"png of zero size", withPngSize(0)},
      {"jpeg cut inside its scan", cut(jpeg, scanStart + 2)},
      {"jpeg markers only", cut(jpeg, 3)},
      {"jpeg over 4096 x 4096", withJpegSize(4097)},
      {"jpeg of zero size", withJpegSize(0)},
      {"webp cut in half", cut(webp, webp.size() / 2)},
      {"webp header only", cut(webp, 12)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(decodeFirstFrame(row.bytes));
  }
  EXPECT_TRUE(decodeFirstFrame(withPngSize(2)));  // the size edit itself keeps a valid file
}

TEST_F(BundleTest, ABrokenSequenceGivesNoListAtAll) {
  auto undecodable = encodeGif(GifLayout{2, 2, {solidFrame(0, 0, 2, 2, 1), solidFrame(0, 0, 2, 2, 2)}});
  undecodable.bytes[undecodable.frameData[0] + 1] = undecodable.bytes[undecodable.frameData[0] + 2] = 0xFF;
  const struct {
    const char* name;
    std::function<void()> damage;  // after loading_1 ... loading_5.gif are written
    int frameCount;
  } rows[] = {{"third frame missing", [&] { std::filesystem::remove(dir_.path() / "loading_3.gif"); }, 5},
              {"third frame is not an image",
               [&] {
                 write("loading_3.gif", {'G', 'I', 'F'});
               },
               5},
              {"first frame of the third file undecodable", [&] { write("loading_3.gif", undecodable.bytes); }, 5},
              {"more frames asked than exist", [] {}, 6},
              {"zero frames", [] {}, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (int k = 1; k <= 5; ++k) writeGif("loading_" + std::to_string(k) + ".gif", static_cast<std::uint8_t>(k));
    row.damage();
    EXPECT_FALSE(framedImageSequence("loading", row.frameCount, false, "gif", *bundle_));
  }
}

TEST_F(BundleTest, NamedGifIsTheBundlesGifResource) {
  writeGif("success.gif", 2, 3);
  writeGif("other.png", 2);
  const auto image = gifImage("success", *bundle_);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->frames().size(), 3u);
  EXPECT_DOUBLE_EQ(image->duration(), 0.15);
  EXPECT_FALSE(gifImage("missing", *bundle_));
  EXPECT_FALSE(gifImage("other", *bundle_));
}

}  // namespace
}  // namespace kiv
