#include "flow/iproov_outcome_mapping.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kiv {
namespace {

// The raw values themselves are pinned with the vocabulary; here every one of
// them must map back, and anything but an exact raw value is unknown, its
// description still kept.
TEST(CaptureFailure, MapsTheFirstReasonByItsExactRawValue) {
  std::vector<std::pair<std::string, KivFailureType>> cases;
  for (auto type : allCases<KivFailureType>()) cases.emplace_back(rawValue(type), type);
  for (std::string code : {"TOO_DARK", "Eyes_Closed", "tooDark", "too_dark ", "liveness_failed", ""}) {
    cases.emplace_back(code, KivFailureType::unknown);
  }
  for (const auto& [code, type] : cases) {
    EXPECT_EQ(failureType(code), type) << code;
    const auto failure = captureFailure(FailureResult{{{code, "first"}, {"too_dark", "second"}}});
    EXPECT_EQ(failure.type, type) << code;
    EXPECT_EQ(failure.description, "first");
  }
}

TEST(CaptureFailure, WithoutReasonsIsUnknownAndTryAgain) {
  auto failure = captureFailure(FailureResult{});
  EXPECT_EQ(failure.type, KivFailureType::unknown);
  EXPECT_EQ(failure.description, "Try Again");
}

TEST(VendorError, MapsToItsErrorTypeWithTheVendorsDescription) {
  using C = IProovError::Code;
  using E = KivErrorType;
  for (const auto& [code, type] :
       std::vector<std::pair<C, E>>{{C::network, E::networkException},
                                    {C::server, E::serverException},
                                    {C::unexpected, E::unexpectedErrorException},
                                    {C::captureAlreadyActive, E::captureAlreadyActiveException},
                                    {C::cameraPermissionDenied, E::cameraPermission},
                                    {C::userTimeout, E::userTimeoutException},
                                    {C::notSupported, E::unsupportedDevice},
                                    // Every other vendor error.
                                    {C::invalidOptions, E::serverException},
                                    {C::cameraUnavailable, E::serverException}}) {
    SCOPED_TRACE(rawValue(code));
    EXPECT_EQ(errorType(IProovError(code)), type);
    const auto described = captureError(IProovError(code, "Camera busy"));
    EXPECT_EQ(std::pair(described.type, described.description), std::pair(type, std::string("Camera busy")));
    EXPECT_EQ(captureError(IProovError(code)).description, "IproovError");
    EXPECT_EQ(captureError(IProovError(code, "")).description, "");  // empty is still the vendor's text
  }
}

}  // namespace
}  // namespace kiv
