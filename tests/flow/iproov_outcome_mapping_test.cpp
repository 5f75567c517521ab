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
