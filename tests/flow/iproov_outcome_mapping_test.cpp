#include "flow/iproov_outcome_mapping.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace kiv {
namespace {

// Written out rather than read from the vocabulary's own table, so that a
// wrong raw value there shows up here too.
class FeedbackCode : public ::testing::TestWithParam<std::pair<std::string, KivFailureType>> {};

TEST_P(FeedbackCode, MapsByExactRawValue) {
  const auto& [code, type] = GetParam();
  EXPECT_EQ(failureType(code), type);
  auto failure = captureFailure(FailureResult{{{code, "first"}, {"too_dark", "second"}}});
  EXPECT_EQ(failure.type, type);
  EXPECT_EQ(failure.description, "first");
}

using F = KivFailureType;
INSTANTIATE_TEST_SUITE_P(
    Vendor, FeedbackCode,
    ::testing::Values(std::pair{"unknown", F::unknown}, std::pair{"too_much_movement", F::tooMuchMovement},
                      std::pair{"too_bright", F::tooBright}, std::pair{"too_dark", F::tooDark},
                      std::pair{"misaligned_face", F::misalignedFace}, std::pair{"eyes_closed", F::eyesClosed},
                      std::pair{"face_too_far", F::faceTooFar}, std::pair{"face_too_close", F::faceTooClose},
                      std::pair{"sunglasses", F::sunglasses}, std::pair{"eyewear", F::eyewear},
                      std::pair{"obscured_face", F::obscuredFace}, std::pair{"multiple_faces", F::multipleFaces},
                      std::pair{"face_not_found", F::faceNotFound}, std::pair{"frames_blurry", F::framesBlurry},
                      std::pair{"lighting_issues", F::lightingIssues}, std::pair{"motion_issue", F::motionIssue},
                      std::pair{"background_issue", F::backgroundIssue}, std::pair{"device_issue", F::deviceIssue},
                      std::pair{"device_restart", F::deviceRestart}, std::pair{"system_error", F::systemError},
                      std::pair{"rejected", F::rejected}, std::pair{"timeout", F::timeout},
                      std::pair{"user_not_found", F::userNotFound}, std::pair{"processing_fault", F::processingFault}));

// Anything but an exact raw value is unknown, its description still kept.
INSTANTIATE_TEST_SUITE_P(Unknown, FeedbackCode,
                         ::testing::Values(std::pair{"TOO_DARK", F::unknown}, std::pair{"Eyes_Closed", F::unknown},
                                           std::pair{"tooDark", F::unknown}, std::pair{"too_dark ", F::unknown},
                                           std::pair{"liveness_failed", F::unknown}, std::pair{"", F::unknown}));

TEST(CaptureFailure, WithoutReasonsIsUnknownAndTryAgain) {
  auto failure = captureFailure(FailureResult{});
  EXPECT_EQ(failure.type, KivFailureType::unknown);
  EXPECT_EQ(failure.description, "Try Again");
}

struct ErrorCase {
  IProovError::Code code;
  KivErrorType type;
};

class VendorError : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(VendorError, MapsToItsErrorTypeWithTheVendorsDescription) {
  auto [code, type] = GetParam();
  EXPECT_EQ(errorType(IProovError(code)), type);

  auto described = captureError(IProovError(code, "Camera busy"));
  EXPECT_EQ(described.type, type);
  EXPECT_EQ(described.description, "Camera busy");

  EXPECT_EQ(captureError(IProovError(code)).description, "IproovError");
  EXPECT_EQ(captureError(IProovError(code, "")).description, "");  // empty is still the vendor's text
}

using C = IProovError::Code;
using E = KivErrorType;
INSTANTIATE_TEST_SUITE_P(Vendor, VendorError,
                         ::testing::Values(ErrorCase{C::network, E::networkException},
                                           ErrorCase{C::server, E::serverException},
                                           ErrorCase{C::unexpected, E::unexpectedErrorException},
                                           ErrorCase{C::captureAlreadyActive, E::captureAlreadyActiveException},
                                           ErrorCase{C::cameraPermissionDenied, E::cameraPermission},
                                           ErrorCase{C::userTimeout, E::userTimeoutException},
                                           ErrorCase{C::notSupported, E::unsupportedDevice},
                                           // Every other vendor error.
                                           ErrorCase{C::invalidOptions, E::serverException},
                                           ErrorCase{C::cameraUnavailable, E::serverException}),
                         [](const auto& testInfo) { return std::string(rawValue(testInfo.param.code)); });

}  // namespace
}  // namespace kiv
