// Test doubles for a C++ host's own tests: the simulated capture vendor and
// its script, and a camera answer decided in advance. They live in the
// kivfll_testing library (CMake target kiv::kivfll_testing), never in the
// shipped one, and never in the umbrella header.
//
//   auto bundle = kiv::makeLinuxPlatform();
//   bundle.capture = std::make_shared<kiv::SimulatedCaptureVendor>(
//       kiv::CaptureScript::parse("connected; success").value());
//   bundle.camera = std::make_shared<kiv::FixedCameraAuthorization>(kiv::CameraAuthorizationStatus::authorized);
//   kiv::installPlatform(std::move(bundle));
#pragma once

#include "kiv/testing/capture_script.hpp"
#include "kiv/testing/fixed_camera_authorization.hpp"
#include "kiv/testing/simulated_capture_vendor.hpp"
