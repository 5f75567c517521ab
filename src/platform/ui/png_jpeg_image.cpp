#include "platform/ui/png_jpeg_image.hpp"

// jpeglib.h needs FILE and size_t declared first.
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include <jerror.h>
#include <jpeglib.h>
#include <png.h>

namespace kiv {
namespace {

bool withinLimit(std::size_t width, std::size_t height, std::size_t maxPixels) {
  return width > 0 && height > 0 && width <= maxPixels / height;
}

// libjpeg reports a fatal error by calling error_exit, which must not
// return; we jump back to the decode call. A file cut short is only a
// warning to libjpeg, which fills the missing rows with grey and calls the
// image decoded: we note it and refuse the image. Other warnings (stray
// bytes before a marker) are common in real files and kept quiet.
struct JpegErrors {
  jpeg_error_mgr manager{};
  std::jmp_buf jump{};
  bool cutShort = false;
};

[[noreturn]] void jpegErrorExit(j_common_ptr info) { std::longjmp(reinterpret_cast<JpegErrors*>(info->err)->jump, 1); }

void jpegMessage(j_common_ptr info, int level) {
  if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) reinterpret_cast<JpegErrors*>(info->err)->cutShort = true;
}

void jpegSilence(j_common_ptr) {}

struct JpegDecompress {
  jpeg_decompress_struct info{};
  ~JpegDecompress() { jpeg_destroy_decompress(&info); }
};

// Kept apart from decodeJpegImage so that nothing with a destructor lives
// between the setjmp and the calls that may jump back to it: `rgba` is
// owned by the caller and only written through.
bool readJpeg(std::span<const std::uint8_t> bytes, std::size_t maxPixels, JpegDecompress& jpeg, JpegErrors& errors,
              std::vector<std::uint8_t>& rgba) {
  jpeg.info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = jpegErrorExit;
  errors.manager.emit_message = jpegMessage;
  errors.manager.output_message = jpegSilence;
  if (setjmp(errors.jump) != 0) return false;
  jpeg_create_decompress(&jpeg.info);
  jpeg_mem_src(&jpeg.info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  if (jpeg_read_header(&jpeg.info, TRUE) != JPEG_HEADER_OK) return false;
  if (!withinLimit(jpeg.info.image_width, jpeg.info.image_height, maxPixels)) return false;
  jpeg.info.out_color_space = JCS_EXT_RGBA;
  jpeg_start_decompress(&jpeg.info);
  const std::size_t stride = static_cast<std::size_t>(jpeg.info.output_width) * 4;
  rgba.resize(stride * jpeg.info.output_height);
  while (jpeg.info.output_scanline < jpeg.info.output_height) {
    JSAMPROW row = rgba.data() + stride * jpeg.info.output_scanline;
    if (jpeg_read_scanlines(&jpeg.info, &row, 1) != 1) return false;
  }
  jpeg_finish_decompress(&jpeg.info);
  return !errors.cutShort;
}

}  // namespace

bool looksLikePng(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
}

bool looksLikeJpeg(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

ImageRef decodePngImage(std::span<const std::uint8_t> bytes, std::size_t maxPixels) {
  if (!looksLikePng(bytes)) return nullptr;
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  // The simplified API keeps libpng's longjmp inside libpng.
  if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size())) return nullptr;
  if (!withinLimit(png.width, png.height, maxPixels)) {
    png_image_free(&png);
    return nullptr;
  }
  png.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> rgba(PNG_IMAGE_SIZE(png));
  const bool read = png_image_finish_read(&png, nullptr, rgba.data(), 0, nullptr) != 0;
  png_image_free(&png);
  if (!read) return nullptr;
  return Image::still(static_cast<int>(png.width), static_cast<int>(png.height), std::move(rgba));
}

ImageRef decodeJpegImage(std::span<const std::uint8_t> bytes, std::size_t maxPixels) {
  if (!looksLikeJpeg(bytes)) return nullptr;
  JpegDecompress jpeg;
  JpegErrors errors;
  std::vector<std::uint8_t> rgba;
  if (!readJpeg(bytes, maxPixels, jpeg, errors, rgba)) return nullptr;
  return Image::still(static_cast<int>(jpeg.info.output_width), static_cast<int>(jpeg.info.output_height),
                      std::move(rgba));
}

}  // namespace kiv
