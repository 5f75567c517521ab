#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kiv/environment.hpp"
#include "kiv/error_types.hpp"
#include "kiv/log_level.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/capture/options.hpp"
#include "kiv/platform/capture/status.hpp"
#include "kiv/results.hpp"
#include "support/wire_values.hpp"
#include "telemetry/analytics_vocabulary.hpp"
#include "telemetry/crash_report_sender.hpp"

namespace kiv {
namespace {

using testing::rawValues;
using testing::words;

// Each case of each raw-representable enumeration has a raw value of its own
// that reads back as that case: a repeated row or raw value fails the build.
template <typename... E>
constexpr bool eachCaseRoundTrips() {
  return ([] {
    const auto cases = allCases<E>();
    for (std::size_t i = 0; i < cases.size(); ++i) {
      if (fromRawValue<E>(rawValue(cases[i])) != cases[i]) return false;
      for (std::size_t j = 0; j < i; ++j) {
        if (cases[j] == cases[i]) return false;
      }
    }
    return true;
  }() && ...);
}
static_assert(
    eachCaseRoundTrips<KivErrorType, KivFailureType, KivEnvironment, KivSdkPlatform, KivLogLevel,
                       CameraAuthorizationStatus, Options::NaturalFilter::Style, Options::LineDrawingFilter::Style,
                       Canceler, IProovError::Code, KivAnalyticsPlatform, KivAnalyticsStage, KivAnalyticsEndpoint,
                       KivAnalyticsResult, KivAnalyticsEventType, KivAnalyticsEventName, CrashReportResult>());
// The fixed events' table is looked up by the event's value.
static_assert([] {
  for (std::size_t i = 0; i < kFixedEvents.size(); ++i) {
    if (kFixedEvents[i].event != static_cast<KivAnalyticsFixedEvent>(i)) return false;
  }
  return true;
}());

// What a host switches on.

TEST(Vocabulary, ErrorAndFailureTypesHaveTheirWireValuesInDeclarationOrder) {
  EXPECT_EQ(rawValues<KivErrorType>(),
            words("unsupportedDevice cameraPermission networkException serverException tokenException "
                  "captureAlreadyActiveException unexpectedErrorException userTimeoutException imageNotFoundException "
                  "tooManyRequestsException unknownException libraryException permissionException "
                  "invalidResponseException cameraException certificateException invalidOptionsException "
                  "securityException faceAuthentication"));
  EXPECT_EQ(rawValues<KivFailureType>(),
            words("unknown too_much_movement too_bright too_dark misaligned_face eyes_closed face_too_far "
                  "face_too_close sunglasses eyewear obscured_face multiple_faces face_not_found frames_blurry "
                  "lighting_issues motion_issue background_issue device_issue device_restart system_error rejected "
                  "timeout user_not_found processing_fault"));
}

TEST(Vocabulary, RecordsEncodeTheirKeysInOrderAndOmitAbsentFields) {
  EXPECT_EQ(encodeJSON(KivSDKError(KivErrorType::networkException, std::nullopt)),
            R"({"errorType":"networkException"})");
  EXPECT_EQ(encodeJSON(KivSDKError(KivErrorType::tokenException, "bad \"token\"")),
            R"({"errorType":"tokenException","description":"bad \"token\""})");
  EXPECT_EQ(encodeJSON(KivSDKFailure(std::nullopt, KivFailureType::eyesClosed, "Blink")),
            R"({"failureReason":"eyes_closed","description":"Blink"})");
  EXPECT_EQ(encodeJSON(KivSDKFailure("sig", KivFailureType::timeout, std::nullopt)),
            R"({"signedResponse":"sig","failureReason":"timeout"})");
  EXPECT_EQ(encodeJSON(KivSDKFailure("", KivFailureType::timeout, "")),
            R"({"signedResponse":"","failureReason":"timeout","description":""})");
}

}  // namespace
}  // namespace kiv
