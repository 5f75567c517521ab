// Animated images for the host: from GIF data, from a GIF resource, or from a
// numbered sequence of still frames. The SDK itself never calls these.
//
//   kiv::ImageRef spinner = kiv::gifImage("spinner", *bundle);   // spinner.gif
//   auto frames = kiv::framedImageSequence("loading", 12, false, "webp", *bundle);
//
// An animated image shows each frame for duration / frame count. A GIF
// frame's delay is its unclamped delay when above 0, else its clamped delay
// when above 0, else 0.1 s; frames that do not decode are left out together
// with their delay. Still frames of a sequence may be PNG, JPEG, GIF (its
// first frame) or WebP (still, or an animation's first frame). All
// functions are pure, read the bundle's files synchronously and may run on
// any thread.
//
// Memory: every frame of a GIF is kept as the whole canvas in palette
// indices, one byte per pixel (two when the file's colour tables, plus one
// transparent colour once a frame shows through, together exceed 256
// colours), composed into RGBA only when a frame is drawn
// (Image::rgba()). A 1280 x 720 GIF of 120 frames holds about 110 MB; the
// same frames as RGBA would take 442 MB. Still frames of a sequence are
// RGBA, 4 bytes per pixel (indexed when they come from a GIF).
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "kiv/platform/ui/image.hpp"
#include "kiv/resource_bundle.hpp"

namespace kiv {

// The bound against decompression bombs: a GIF whose frames would hold more
// than this (512 MiB, about 580 frames of 1280 x 720, 23 s at 25 frames a
// second) gives no image at all rather than a silently shortened one. A
// canvas or frame over 4096 x 4096 pixels is refused too. Decoding time is
// linear in the bytes held.
inline constexpr std::size_t kGifImageMaxBytes = std::size_t{512} * 1024 * 1024;

// The animated image of a GIF's frames, composited onto its canvas. Absent
// when the data is not a GIF, no frame decodes, or the frames exceed
// kGifImageMaxBytes.
ImageRef gifImage(std::span<const std::uint8_t> data);

// gifImage(data) of the bundle's resource `name`.gif; absent when the
// resource is missing or unreadable.
ImageRef gifImage(std::string_view name, const ResourceBundle& bundle);

// The first frames of the bundle's resources `folder`_1 ... `folder`_`frameCount`
// (no padding) with the given extension, in that order or reversed. Absent
// as a whole when frameCount is not positive or any one frame is missing or
// does not decode: never a partial list.
std::optional<std::vector<ImageRef>> framedImageSequence(std::string_view folder, int frameCount, bool reversed,
                                                         std::string_view fileExtension, const ResourceBundle& bundle);

// Kept for hosts that look for a helper type; it has no members.
class KivImageHelper {};

}  // namespace kiv

#pragma GCC visibility pop
