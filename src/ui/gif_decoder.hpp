// GIF decoding over giflib: bytes in, full-canvas frames (palette indices
// into one palette shared by the whole animation) and each frame's delay
// properties out. Pure functions, safe on any thread.
//
//   auto gif = kiv::gif::decode(bytes);
//   if (gif) for (auto& frame : gif->frames) total += kiv::gif::frameDelay(frame.delays);
//
// Compositing follows what browsers do: the canvas starts fully transparent,
// a frame's transparent colour index leaves the canvas below it, colour
// indices outside the colour table are treated as transparent, "restore to
// background" clears the frame's rectangle to transparent (not to the
// background colour), and "restore to previous" puts back the rectangle as
// it was before the frame was drawn. Frame rectangles are clipped to the
// canvas.
//
// A frame whose pixel data does not decode (defective LZW data, no colour
// table, an empty or oversized rectangle, a colour table that would take
// the file's merged palette past 65535 colours) is left out, together with its
// delay, and leaves the canvas as it was; decoding goes on with the next
// frame. A file cut short keeps the frames completed before the cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kiv/image_helpers.hpp"
#include "kiv/platform/ui/image.hpp"

namespace kiv::gif {

// Hostile headers can claim a 65535 x 65535 canvas. A canvas, and a frame
// rectangle, may hold at most 4096 x 4096 pixels. Frames are held as palette
// indices (see Image), and a GIF whose kept frames would together hold more
// than maxHeldBytes is refused as a whole rather than cut short, so a caller
// never plays a silently truncated animation; the default is the public
// kGifImageMaxBytes.
inline constexpr std::size_t kMaxCanvasPixels = std::size_t{4096} * 4096;

// The player's delay when a frame says nothing usable.
inline constexpr double kDefaultFrameDelay = 0.1;

// The two delay properties of a frame, both absent when the frame has no
// graphics control block. `unclamped` is the block's raw delay in seconds;
// `clamped` is the same raised to at least 0.1 s, the value a platform
// player reports for frames that ask to flash faster than that.
struct FrameDelays {
  std::optional<double> unclamped;
  std::optional<double> clamped;
};

FrameDelays delaysFromCentiseconds(int centiseconds);

// The delay a frame is shown for: the unclamped delay when above 0, else the
// clamped one when above 0, else 0.1 s. No upper bound.
double frameDelay(const FrameDelays& delays);

struct Frame {
  ImageRef image;  // the whole canvas after this frame was drawn, indexed
  FrameDelays delays;
};

struct DecodedGif {
  int width = 0;              // canvas
  int height = 0;             // canvas
  std::vector<Frame> frames;  // the frames that decoded, in file order
};

struct DecodeOptions {
  // Stop after the first frame of the file, whether it decoded or not.
  bool firstFrameOnly = false;
  std::size_t maxHeldBytes = kGifImageMaxBytes;
};

// Absent when the bytes are not a GIF, the canvas is empty or over
// kMaxCanvasPixels, or the kept frames would hold more than maxHeldBytes.
// An empty `frames` means the file holds no frame or none decoded. Time and
// memory are linear in the frames kept.
std::optional<DecodedGif> decode(std::span<const std::uint8_t> bytes, DecodeOptions options = {});

// True when the bytes start like a GIF file.
bool looksLikeGif(std::span<const std::uint8_t> bytes);

}  // namespace kiv::gif
