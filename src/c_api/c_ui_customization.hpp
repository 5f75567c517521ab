// The capture screen's look as a C host writes it: a JSON object (the keys
// are listed in kiv/face_liveness_lite.h).
#pragma once

#include <optional>
#include <string_view>

#include "kiv/ui_customization.hpp"

namespace kiv::c_api {

// The customization, or nullopt for text that is not such an object (bad
// JSON, an unknown key, a value of the wrong type, a malformed colour).
std::optional<DorvinUiCustomization> parseUiCustomization(std::string_view text);

}  // namespace kiv::c_api
