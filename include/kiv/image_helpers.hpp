// Animated images for the host: from GIF data, from a GIF resource, or from a
// numbered sequence of still frames. The SDK itself never calls these.
//
//   kiv::ImageRef spinner = kiv::gifImage("spinner", *bundle);   // spinner.gif
//   auto frames = kiv::framedImageSequence("loading", 12, false, "webp", *bundle);
//
// An animated image shows each frame for duration / frame count. A GIF
// frame's delay is its unclamped delay when above 0, else its clamped delay
// when above 0, else 0.1 s; frames that do not decode are left out together
// with their delay. Still frames of a sequence may be GIF (its first frame)
// or WebP (still, or an animation's first frame). All functions are pure,
// read the bundle's files synchronously and may run on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "kiv/platform/ui/image.hpp"
#include "kiv/resource_bundle.hpp"

namespace kiv {

// The animated image of a GIF's frames, composited onto its canvas. Absent
// when the data is not a GIF or no frame decodes.
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
