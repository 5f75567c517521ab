#include "kiv/testing/fixed_camera_authorization.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {

void FixedCameraAuthorization::requestAccess(Completion completion) {
  platform()->taskPool->post([completion = std::move(completion), granted = answerToRequest_] { completion(granted); });
}

}  // namespace kiv
