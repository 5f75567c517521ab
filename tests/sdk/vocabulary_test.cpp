#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kiv/environment.hpp"
#include "kiv/error_types.hpp"
#include "kiv/results.hpp"
#include "support/wire_values.hpp"

namespace kiv {
namespace {

using testing::rawValues;
using testing::words;

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

TEST(Vocabulary, RawValueConstructionIsExactAndCaseSensitive) {
  EXPECT_EQ(fromRawValue<KivEnvironment>(2), KivEnvironment::prod);
  EXPECT_EQ(toString(KivEnvironment::prod), "prod");
  EXPECT_EQ(toString(KivEnvironment::dev), "dev");
  EXPECT_EQ(toString(KivEnvironment::beta), "beta");
  EXPECT_EQ(rawValue(KivEnvironment::beta), 1);
  EXPECT_EQ(fromRawValue<KivEnvironment>(3), std::nullopt);
  EXPECT_EQ(fromRawValue<KivEnvironment>(-1), std::nullopt);

  EXPECT_EQ(fromRawValue<KivErrorType>("cameraPermission"), KivErrorType::cameraPermission);
  EXPECT_EQ(fromRawValue<KivErrorType>("CameraPermission"), std::nullopt);
  EXPECT_EQ(fromRawValue<KivErrorType>(""), std::nullopt);

  EXPECT_EQ(rawValue(KivSdkPlatform::nativeIos), "nativeIos");
  EXPECT_EQ(fromRawValue<KivSdkPlatform>("flutterIos"), KivSdkPlatform::flutterIos);
  EXPECT_EQ(allCases<KivSdkPlatform>().size(), 3u);
}

TEST(Vocabulary, RecordsEncodeTheirKeysInOrderAndOmitAbsentFields) {
  EXPECT_EQ(encodeJSON(KivSDKError(KivErrorType::networkException, std::nullopt)),
            R"({"errorType":"networkException"})");
  EXPECT_EQ(encodeJSON(KivSDKError(KivErrorType::tokenException, "bad \"token\"")),
            R"({"errorType":"tokenException","description":"bad \"token\""})");
  EXPECT_EQ(encodeJSON(KivSDKFailure(std::nullopt, KivFailureType::eyesClosed, "Blink")),
            R"({"failureReason":"eyes_closed","description":"Blink"})");
  EXPECT_EQ(encodeJSON(KivSDKFailure(std::nullopt, KivFailureType::unknown, std::nullopt)),
            R"({"failureReason":"unknown"})");
  EXPECT_EQ(encodeJSON(KivSDKFailure("sig", KivFailureType::timeout, std::nullopt)),
            R"({"signedResponse":"sig","failureReason":"timeout"})");
  EXPECT_EQ(encodeJSON(KivSDKFailure("", KivFailureType::timeout, "")),
            R"({"signedResponse":"","failureReason":"timeout","description":""})");
  EXPECT_EQ(encodeJSON(KivErrorType::cameraPermission), R"("cameraPermission")");
  EXPECT_EQ(encodeJSON(KivFailureType::faceTooClose), R"("face_too_close")");
}

TEST(Vocabulary, SdkErrorIsThrowable) {
  try {
    throw KivSDKError(KivErrorType::serverException, "HTTP 500");
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "HTTP 500");
  }
  EXPECT_STREQ(KivSDKError(KivErrorType::cameraException, std::nullopt).what(), "cameraException");
}

}  // namespace
}  // namespace kiv
