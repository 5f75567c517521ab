#include "ui/gif_decoder.hpp"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <variant>

namespace kiv::gif {
namespace {

constexpr double kMinimumClampedDelay = 0.1;

// giflib pulls its input through this callback; the position is ours, which
// is what lets a defective frame be stepped over (see skipImageData).
struct Source {
  std::span<const std::uint8_t> bytes;
  std::size_t position = 0;
};

int readFromSource(GifFileType* file, GifByteType* out, int length) {
  auto* source = static_cast<Source*>(file->UserData);
  if (length <= 0) return 0;
  const std::size_t available = source->bytes.size() - source->position;
  const std::size_t count = std::min(static_cast<std::size_t>(length), available);
  if (count > 0) std::memcpy(out, source->bytes.data() + source->position, count);
  source->position += count;
  return static_cast<int>(count);
}

struct GifCloser {
  void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
};
using GifFile = std::unique_ptr<GifFileType, GifCloser>;

// Reads one extension record. Only a graphics control block matters: it
// describes the next image. Returns false when the file ends inside it.
bool readExtension(GifFileType* file, std::optional<GraphicsControlBlock>& control) {
  int code = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(file, &code, &block) == GIF_ERROR) return false;
  bool first = true;
  while (block != nullptr) {
    if (first && code == GRAPHICS_EXT_FUNC_CODE) {
      GraphicsControlBlock parsed{};
      if (DGifExtensionToGCB(block[0], block + 1, &parsed) == GIF_OK) control = parsed;
    }
    first = false;
    if (DGifGetExtensionNext(file, &block) == GIF_ERROR) return false;
  }
  return true;
}

// The order in which an interlaced image's lines arrive: every 8th row from
// 0, every 8th from 4, every 4th from 2, every 2nd from 1.
std::vector<int> rowOrder(int height, bool interlaced) {
  std::vector<int> rows;
  rows.reserve(static_cast<std::size_t>(height));
  if (!interlaced) {
    for (int row = 0; row < height; ++row) rows.push_back(row);
    return rows;
  }
  constexpr int kStart[] = {0, 4, 2, 1};
  constexpr int kStep[] = {8, 8, 4, 2};
  for (int pass = 0; pass < 4; ++pass) {
    for (int row = kStart[pass]; row < height; row += kStep[pass]) rows.push_back(row);
  }
  return rows;
}

// The colour indices of the image whose descriptor was just read, row by
// row, or absent when they cannot be decoded.
std::optional<std::vector<GifByteType>> readIndices(GifFileType* file) {
  const GifImageDesc& desc = file->Image;
  if (desc.Width <= 0 || desc.Height <= 0) return std::nullopt;
  const auto width = static_cast<std::size_t>(desc.Width);
  if (width * static_cast<std::size_t>(desc.Height) > kMaxCanvasPixels) return std::nullopt;
  if (desc.ColorMap == nullptr && file->SColorMap == nullptr) return std::nullopt;
  std::vector<GifByteType> indices(width * static_cast<std::size_t>(desc.Height));
  for (int row : rowOrder(desc.Height, desc.Interlace)) {
    if (DGifGetLine(file, indices.data() + static_cast<std::size_t>(row) * width, desc.Width) == GIF_ERROR) {
      return std::nullopt;
    }
  }
  return indices;
}

// After a frame failed part-way, giflib's read position is somewhere inside
// the frame's data sub-blocks (or just past their terminator). The data is
// a chain of length-prefixed sub-blocks ending in a zero length, starting
// where the descriptor ended, so we find that terminator ourselves, put the
// read position on it and let giflib consume it: that also clears giflib's
// half-read block state, and the next record reads cleanly. False when the
// chain runs past the end of the file.
bool skipImageData(GifFileType* file, Source& source, std::size_t dataStart) {
  std::size_t position = dataStart;
  while (position < source.bytes.size()) {
    const std::size_t length = source.bytes[position];
    if (length == 0) {
      source.position = position;
      GifByteType* block = nullptr;
      return DGifGetCodeNext(file, &block) == GIF_OK && block == nullptr;
    }
    position += 1 + length;
  }
  return false;
}

// The colour tables of the whole file, merged into one palette: each
// distinct table once, in the order first used, and a transparent entry
// added only once a kept frame shows a see-through pixel. The canvas holds
// indices into it, so drawing a frame is copying indices, and a frame is
// kept as one byte per pixel while the palette has at most 256 colours: a
// file with one full 256-colour table that covers its canvas stays there.
class PaletteBuilder {
 public:
  // Canvas cells are 16 bits and kClear is not an index: 65535 colours,
  // the last place kept free for the transparent entry.
  static constexpr std::size_t kMaxColors = 65535;

  // The palette index of the table's first colour; absent when the table
  // would leave no place for the transparent entry.
  std::optional<std::uint16_t> offsetOf(const ColorMapObject& table) {
    std::vector<std::uint8_t> key;
    key.reserve(static_cast<std::size_t>(table.ColorCount) * 4);
    for (int i = 0; i < table.ColorCount; ++i) {
      key.insert(key.end(), {table.Colors[i].Red, table.Colors[i].Green, table.Colors[i].Blue, 255});
    }
    if (const auto found = offsets_.find(key); found != offsets_.end()) return found->second;
    const std::size_t offset = colors();
    if (offset + static_cast<std::size_t>(table.ColorCount) >= kMaxColors) return std::nullopt;
    palette_.insert(palette_.end(), key.begin(), key.end());
    offsets_.emplace(std::move(key), static_cast<std::uint16_t>(offset));
    return static_cast<std::uint16_t>(offset);
  }

  std::uint16_t transparent() {
    if (!transparent_) {
      transparent_ = static_cast<std::uint16_t>(colors());
      palette_.insert(palette_.end(), {0, 0, 0, 0});
    }
    return *transparent_;
  }

  std::size_t colors() const { return palette_.size() / 4; }
  Palette take() { return std::move(palette_); }

 private:
  Palette palette_;
  std::optional<std::uint16_t> transparent_;
  std::map<std::vector<std::uint8_t>, std::uint16_t> offsets_;
};

// A canvas cell nothing has been drawn on (or that was cleared).
constexpr std::uint16_t kClear = 0xFFFF;

// The canvas as a frame to keep: clear cells become the palette's
// transparent entry, and the indices are narrowed to bytes when the
// palette allows. Plain loops: they run over every pixel of every frame.
std::variant<std::vector<std::uint8_t>, std::vector<std::uint16_t>> keepFrame(const std::vector<std::uint16_t>& cells,
                                                                              PaletteBuilder& palette) {
  const std::uint16_t* cell = cells.data();
  const std::size_t count = cells.size();
  bool seeThrough = false;
  for (std::size_t i = 0; i < count && !seeThrough; ++i) seeThrough = cell[i] == kClear;
  const std::uint16_t transparent = seeThrough ? palette.transparent() : 0;
  if (palette.colors() <= 256) {
    std::vector<std::uint8_t> kept(count);
    for (std::size_t i = 0; i < count; ++i)
      kept[i] = static_cast<std::uint8_t>(cell[i] == kClear ? transparent : cell[i]);
    return kept;
  }
  std::vector<std::uint16_t> kept(count);
  for (std::size_t i = 0; i < count; ++i) kept[i] = cell[i] == kClear ? transparent : cell[i];
  return kept;
}

class Canvas {
 public:
  Canvas(int width, int height)
      : width_(width),
        height_(height),
        cells_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), kClear) {}

  const std::vector<std::uint16_t>& cells() const { return cells_; }

  void draw(const GifImageDesc& desc, int colorCount, std::uint16_t offset, const std::vector<GifByteType>& indices,
            int transparentIndex) {
    forEachClipped(desc, [&](std::size_t cell, std::size_t index) {
      const int colorIndex = indices[index];
      if (colorIndex == transparentIndex || colorIndex >= colorCount) return;
      cells_[cell] = static_cast<std::uint16_t>(offset + colorIndex);
    });
  }

  void clear(const GifImageDesc& desc) {
    forEachClipped(desc, [&](std::size_t cell, std::size_t) { cells_[cell] = kClear; });
  }

  void restore(const GifImageDesc& desc, const std::vector<std::uint16_t>& saved) {
    forEachClipped(desc, [&](std::size_t cell, std::size_t) { cells_[cell] = saved[cell]; });
  }

 private:
  // Calls `visit(canvas cell, index into the frame's pixels)` for each pixel
  // of the frame's rectangle that lies on the canvas.
  template <typename Visit>
  void forEachClipped(const GifImageDesc& desc, Visit&& visit) {
    const int rows = std::min(desc.Height, height_ - desc.Top);
    const int columns = std::min(desc.Width, width_ - desc.Left);
    for (int row = 0; row < rows; ++row) {
      const auto y = static_cast<std::size_t>(desc.Top + row);
      for (int column = 0; column < columns; ++column) {
        const auto x = static_cast<std::size_t>(desc.Left + column);
        visit(y * static_cast<std::size_t>(width_) + x,
              static_cast<std::size_t>(row) * static_cast<std::size_t>(desc.Width) + static_cast<std::size_t>(column));
      }
    }
  }

  int width_;
  int height_;
  std::vector<std::uint16_t> cells_;
};

// A kept frame before the palette is final.
struct HeldFrame {
  std::variant<std::vector<std::uint8_t>, std::vector<std::uint16_t>> cells;
  FrameDelays delays;
};

}  // namespace

FrameDelays delaysFromCentiseconds(int centiseconds) {
  const double seconds = centiseconds / 100.0;
  return FrameDelays{seconds, std::max(seconds, kMinimumClampedDelay)};
}

double frameDelay(const FrameDelays& delays) {
  if (delays.unclamped && *delays.unclamped > 0) return *delays.unclamped;
  if (delays.clamped && *delays.clamped > 0) return *delays.clamped;
  return kDefaultFrameDelay;
}

bool looksLikeGif(std::span<const std::uint8_t> bytes) {
  static constexpr char kSignature[] = "GIF8";
  return bytes.size() >= 6 && std::memcmp(bytes.data(), kSignature, 4) == 0;
}

std::optional<DecodedGif> decode(std::span<const std::uint8_t> bytes, DecodeOptions options) {
  Source source{bytes};
  int openError = 0;
  GifFile file(DGifOpen(&source, readFromSource, &openError));
  if (!file) return std::nullopt;
  const int width = file->SWidth;
  const int height = file->SHeight;
  if (width <= 0 || height <= 0) return std::nullopt;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (pixels > kMaxCanvasPixels) return std::nullopt;

  // Made when the first frame decodes: most damaged files never get there.
  std::optional<Canvas> canvas;
  PaletteBuilder palette;
  std::vector<HeldFrame> held;
  std::optional<GraphicsControlBlock> pendingControl;
  std::size_t heldBytes = 0;

  for (;;) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    // An unreadable record type is trailing garbage or a cut: keep what we have.
    if (DGifGetRecordType(file.get(), &type) == GIF_ERROR || type == TERMINATE_RECORD_TYPE) break;
    if (type == EXTENSION_RECORD_TYPE) {
      if (!readExtension(file.get(), pendingControl)) break;
      continue;
    }
    if (type != IMAGE_DESC_RECORD_TYPE) break;

    const std::optional<GraphicsControlBlock> control = std::exchange(pendingControl, std::nullopt);
    const bool described = DGifGetImageDesc(file.get()) == GIF_OK;
    const std::size_t dataStart = source.position;
    auto indices = described ? readIndices(file.get()) : std::nullopt;
    const GifImageDesc& desc = file->Image;
    const ColorMapObject* colors = desc.ColorMap != nullptr ? desc.ColorMap : file->SColorMap;
    const auto offset = indices ? palette.offsetOf(*colors) : std::nullopt;
    if (!offset) {
      if (options.firstFrameOnly || !skipImageData(file.get(), source, dataStart)) break;
      continue;
    }

    const int disposal = control ? control->DisposalMode : DISPOSAL_UNSPECIFIED;
    std::vector<std::uint16_t> beforeFrame;
    if (!canvas) canvas.emplace(width, height);
    if (disposal == DISPOSE_PREVIOUS) beforeFrame = canvas->cells();
    canvas->draw(desc, colors->ColorCount, *offset, *indices,
                 control ? control->TransparentColor : NO_TRANSPARENT_COLOR);

    HeldFrame frame{keepFrame(canvas->cells(), palette), {}};
    heldBytes += pixels * (frame.cells.index() == 0 ? 1 : 2);
    if (heldBytes > options.maxHeldBytes) return std::nullopt;
    if (control) frame.delays = delaysFromCentiseconds(control->DelayTime);
    held.push_back(std::move(frame));

    if (disposal == DISPOSE_BACKGROUND) canvas->clear(desc);
    if (disposal == DISPOSE_PREVIOUS) canvas->restore(desc, beforeFrame);
    if (options.firstFrameOnly) break;
  }

  DecodedGif result;
  result.width = width;
  result.height = height;
  const auto shared = std::make_shared<const Palette>(palette.take());
  result.frames.reserve(held.size());
  for (auto& frame : held) {
    auto image =
        std::visit([&](auto& cells) { return Image::indexed(width, height, shared, std::move(cells)); }, frame.cells);
    result.frames.push_back(Frame{std::move(image), frame.delays});
  }
  return result;
}

}  // namespace kiv::gif
