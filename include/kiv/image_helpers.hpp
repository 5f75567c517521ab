// Animated images for the host: from GIF data, from a GIF resource, or from a
// numbered sequence of still frames. The SDK itself never calls these.
//
//   kiv::ImageRef spinner = kiv::gifImage(bytes);        // frames + total duration
//   auto frames = kiv::framedImageSequence("loading", 12, false, "webp", *bundle);
//
// An animated image shows each frame for duration / frame count. A GIF
// frame's delay is its unclamped delay when above 0, else its clamped delay
// when above 0, else 0.1 s; frames that do not decode are left out together
// with their delay. All functions are pure and may run on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "kiv/platform/ui/image.hpp"

namespace kiv {

// The animated image of a GIF's frames, composited onto its canvas. Absent
// when the data is not a GIF or no frame decodes.
ImageRef gifImage(std::span<const std::uint8_t> data);

// Kept for hosts that look for a helper type; it has no members.
class KivImageHelper {};

}  // namespace kiv
