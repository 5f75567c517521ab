// The C calls of kiv/testing/face_liveness_lite_testing.h: they swap the
// installed bundle's vendor or camera for a test double, whether or not the
// C interface has made its platform yet (it builds on the installed bundle).
#include "kiv/testing/face_liveness_lite_testing.h"

#include <simdjson.h>

#include <cstring>
#include <memory>
#include <optional>

#include "c_api/guarded.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/testing/face_liveness_lite_testing.hpp"

namespace {

using kiv::c_api::guarded;

kiv_status checkText(const char* text) {
  if (text == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return simdjson::validate_utf8(text, std::strlen(text)) ? KIV_OK : KIV_ERROR_INVALID_UTF8;
}

}  // namespace

extern "C" {

kiv_status kiv_use_simulated_capture(const char* script) {
  if (auto status = checkText(script); status != KIV_OK) return status;
  return guarded([&] {
    auto parsed = kiv::CaptureScript::parse(script);
    if (!parsed) return KIV_ERROR_INVALID_ARGUMENT;
    // One vendor for the process, as before a script change: captures it
    // already runs play on.
    static const auto vendor = std::make_shared<kiv::SimulatedCaptureVendor>();
    vendor->setScript(std::move(*parsed));
    kiv::updatePlatform([&](kiv::Platform& bundle) { bundle.capture = vendor; });
    return KIV_OK;
  });
}

kiv_status kiv_set_camera_status(kiv_camera_status status, int grant_when_asked) {
  std::optional<kiv::CameraAuthorizationStatus> camera;
  switch (status) {
    case KIV_CAMERA_NOT_DETERMINED:
      camera = kiv::CameraAuthorizationStatus::notDetermined;
      break;
    case KIV_CAMERA_RESTRICTED:
      camera = kiv::CameraAuthorizationStatus::restricted;
      break;
    case KIV_CAMERA_DENIED:
      camera = kiv::CameraAuthorizationStatus::denied;
      break;
    case KIV_CAMERA_AUTHORIZED:
      camera = kiv::CameraAuthorizationStatus::authorized;
      break;
  }
  if (!camera) return KIV_ERROR_INVALID_ARGUMENT;
  return guarded([&] {
    auto fixed = std::make_shared<kiv::FixedCameraAuthorization>(*camera, grant_when_asked != 0);
    kiv::updatePlatform([&](kiv::Platform& bundle) { bundle.camera = fixed; });
    return KIV_OK;
  });
}

}  // extern "C"
