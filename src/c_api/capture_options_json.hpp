// The vendor options as the JSON a host's capture vendor receives at launch
// (the keys are listed in kiv/face_liveness_lite.h, beside kiv_capture_vendor).
#pragma once

#include <string>

#include "kiv/platform/capture/options.hpp"

namespace kiv::c_api {

std::string captureOptionsJson(const Options& options);

}  // namespace kiv::c_api
