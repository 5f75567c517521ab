// A camera answer decided in advance, for a host's tests and for hosts that
// decide themselves (the command-line host, a kiosk).
//
//   bundle.camera = std::make_shared<kiv::FixedCameraAuthorization>(kiv::CameraAuthorizationStatus::authorized);
#pragma once

#include "kiv/platform/camera_authorization.hpp"

namespace kiv {

// Always the same status; a request is answered `answerToRequest` from the
// task pool.
class FixedCameraAuthorization final : public CameraAuthorization {
 public:
  explicit FixedCameraAuthorization(CameraAuthorizationStatus status, bool answerToRequest = true)
      : status_(status), answerToRequest_(answerToRequest) {}

  CameraAuthorizationStatus status() override { return status_; }
  void requestAccess(Completion completion) override;

 private:
  const CameraAuthorizationStatus status_;
  const bool answerToRequest_;
};

}  // namespace kiv
