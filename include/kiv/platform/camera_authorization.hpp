// Whether the SDK may use the camera for video capture, and the request for
// access (the system's prompt on a phone).
//
//   auto camera = kiv::platform()->camera;
//   if (camera->status() == kiv::CameraAuthorizationStatus::notDetermined) {
//     camera->requestAccess([](bool granted) { /* on any thread */ });
//   }
//
// A host bridges its own prompt by implementing this interface; a host's
// tests (and the command-line host) install the fixed answer of
// kiv/testing/fixed_camera_authorization.hpp.
#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "kiv/raw_value.hpp"

namespace kiv {

enum class CameraAuthorizationStatus { notDetermined, restricted, denied, authorized };

template <>
struct RawValueTraits<CameraAuthorizationStatus> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<CameraAuthorizationStatus, std::string_view>, 4> table{{
      {CameraAuthorizationStatus::notDetermined, "notDetermined"},
      {CameraAuthorizationStatus::restricted, "restricted"},
      {CameraAuthorizationStatus::denied, "denied"},
      {CameraAuthorizationStatus::authorized, "authorized"},
  }};
};

class CameraAuthorization {
 public:
  using Completion = std::function<void(bool granted)>;

  virtual ~CameraAuthorization() = default;
  // The current status. Safe from any thread.
  virtual CameraAuthorizationStatus status() = 0;
  // Asks for access; `completion` runs once, later, on a thread of the
  // implementation's choosing (never inline). Safe from any thread.
  virtual void requestAccess(Completion completion) = 0;
};

// The Linux answer, from the video devices in `deviceDirectory`: authorized
// when a "video*" device there opens for reading, denied when there is one
// but none opens, restricted when there is none. There is no prompt, so the
// status is never notDetermined and a request is answered with whether the
// status is authorized.
std::shared_ptr<CameraAuthorization> makeLinuxCameraAuthorization(std::filesystem::path deviceDirectory = "/dev");

}  // namespace kiv
