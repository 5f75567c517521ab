#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "telemetry/analytics_error.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {
namespace {

template <typename E>
std::vector<std::string> rawValues() {
  std::vector<std::string> out;
  for (auto item : allCases<E>()) out.emplace_back(rawValue(item));
  return out;
}

struct VocabularyCase {
  std::string name;
  std::vector<std::string> actual;
  std::vector<std::string> expected;
  friend void PrintTo(const VocabularyCase& c, std::ostream* os) { *os << c.name; }
};

class AnalyticsVocabulary : public ::testing::TestWithParam<VocabularyCase> {};

TEST_P(AnalyticsVocabulary, WireValuesAreExactAndInDeclarationOrder) {
  EXPECT_EQ(GetParam().actual, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Enumerations, AnalyticsVocabulary,
    ::testing::Values(
        VocabularyCase{
            "Platform", rawValues<KivAnalyticsPlatform>(), {"native_ios", "flutter_ios", "react_native_ios"}},
        VocabularyCase{"Stage", rawValues<KivAnalyticsStage>(), {"prod", "beta", "dev"}},
        VocabularyCase{
            "Endpoint", rawValues<KivAnalyticsEndpoint>(), {"identify-analytics", "track-analytics", "crashlytics"}},
        VocabularyCase{"Result",
                       rawValues<KivAnalyticsResult>(),
                       {"requested", "granted", "denied", "connected", "success", "failure", "canceled", "error",
                        "session", "transaction", "finish_with_success", "finish_with_failure", "finish_with_error",
                        "cancelled", "recovered", "exception", "signal"}},
        VocabularyCase{
            "EventType",
            rawValues<KivAnalyticsEventType>(),
            {"user_interaction", "api_call", "sdk_step", "sdk_flow", "sdk_error", "identify", "device_info", "crash"}},
        VocabularyCase{"EventName",
                       rawValues<KivAnalyticsEventName>(),
                       {"identify",
                        "start_sdk",
                        "bridge_params",
                        "first_open",
                        "crash",
                        "provider_response",
                        "provider_event",
                        "sdk_result",
                        "sdk_closed",
                        "camera_permission",
                        "camera_permission_granted",
                        "camera_permission_requested",
                        "camera_permission_denied",
                        "sdk_configuration",
                        "device_identified",
                        "app_identified",
                        "device_data",
                        "api_response",
                        "fingerprint_response",
                        "fingerprint_implementation_missing",
                        "capture_screen_opened",
                        "document_back_capture_started",
                        "document_front_capture_started",
                        "preview_screen_opened",
                        "preview_accepted",
                        "preview_screen_retry_clicked",
                        "document_captured_validated",
                        "upload_route_called",
                        "validation_route_called",
                        "document_validated",
                        "document_capture_completed",
                        "capture_finished",
                        "sdk_error",
                        "internal_error",
                        "attestation_route_called",
                        "permission_requested",
                        "permission_granted",
                        "permission_denied",
                        "no_connection",
                        "sdk_background"}}),
    [](const auto& param) { return param.param.name; });

template <typename E>
class AnalyticsRawValues : public ::testing::Test {};
using AnalyticsEnumerations =
    ::testing::Types<KivAnalyticsPlatform, KivAnalyticsStage, KivAnalyticsEndpoint, KivAnalyticsResult,
                     KivAnalyticsEventType, KivAnalyticsEventName, KivAnalyticsFixedEvent>;
TYPED_TEST_SUITE(AnalyticsRawValues, AnalyticsEnumerations);

// A duplicated or mistyped wire value would decode as another case.
TYPED_TEST(AnalyticsRawValues, EveryRawValueDecodesBackToItsOwnCase) {
  std::set<std::string> seen;
  for (auto item : allCases<TypeParam>()) {
    EXPECT_EQ(fromRawValue<TypeParam>(rawValue(item)), item) << rawValue(item);
    seen.emplace(rawValue(item));
  }
  EXPECT_EQ(seen.size(), allCases<TypeParam>().size());
  EXPECT_EQ(fromRawValue<TypeParam>("not_a_value"), std::nullopt);
}

TEST(AnalyticsEvent, FixedEventsCarryTheirNameAndType) {
  std::vector<std::pair<std::string, std::string>> actual;
  for (auto fixed : allCases<KivAnalyticsFixedEvent>()) {
    const KivAnalyticsEvent event = fixed;
    actual.emplace_back(event.name(), rawValue(event.type()));
  }
  const std::vector<std::pair<std::string, std::string>> expected{
      {"identify", "identify"},
      {"start_sdk", "user_interaction"},
      {"first_open", "user_interaction"},
      {"crash", "crash"},
      {"capture_screen_opened", "user_interaction"},
      {"document_back_capture_started", "user_interaction"},
      {"document_front_capture_started", "user_interaction"},
      {"preview_screen_opened", "user_interaction"},
      {"preview_accepted", "user_interaction"},
      {"preview_screen_retry_clicked", "user_interaction"},
      {"document_captured_validated", "sdk_step"},
      {"upload_route_called", "api_call"},
      {"validation_route_called", "api_call"},
      {"document_validated", "sdk_step"},
      {"document_capture_completed", "sdk_step"},
      {"capture_finished", "sdk_step"},
      {"sdk_error", "sdk_error"},
      {"internal_error", "sdk_error"},
      {"attestation_route_called", "api_call"},
      {"permission_requested", "sdk_step"},
      {"permission_granted", "sdk_step"},
      {"permission_denied", "sdk_step"},
      {"no_connection", "sdk_error"}};
  EXPECT_EQ(actual, expected);
}

TEST(AnalyticsEvent, StandardAndCustomFormsSendTheCallersNameAndType) {
  const auto standard = KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep);
  EXPECT_EQ(standard.name(), "sdk_result");
  EXPECT_EQ(standard.type(), KivAnalyticsEventType::sdkStep);
  const auto custom = KivAnalyticsEvent::custom("host_event", KivAnalyticsEventType::crash);
  EXPECT_EQ(custom.name(), "host_event");
  EXPECT_EQ(custom.type(), KivAnalyticsEventType::crash);
  // Same wire fields, different forms: still different events.
  EXPECT_NE(KivAnalyticsEvent::standard(KivAnalyticsEventName::startSdk, KivAnalyticsEventType::userInteraction),
            KivAnalyticsEvent(KivAnalyticsFixedEvent::startSdk));
}

TEST(AnalyticsError, DescriptionsAreTheTextsShown) {
  const std::vector<std::pair<KivAnalyticsError, std::string>> cases{
      {KivAnalyticsError::network(500, "oops"), "Network error (status: 500) body: oops"},
      {KivAnalyticsError::network(429, std::nullopt), "Network error (status: 429) body: <nil>"},
      {KivAnalyticsError::network(300, ""), "Network error (status: 300) body: "},
      {KivAnalyticsError::unknown("boom"), "boom"},
      {KivAnalyticsError::notInitialized(), "KIV Analytics is not initialized."},
      {KivAnalyticsError::invalidURL(), "Invalid URL."},
      {KivAnalyticsError::encodingFailed(), "Failed to encode JSON body."}};
  for (const auto& [error, text] : cases) {
    EXPECT_EQ(error.description(), text);
    EXPECT_STREQ(error.what(), text.c_str());
  }
  const auto network = KivAnalyticsError::network(503, "down");
  EXPECT_EQ(network.kind(), KivAnalyticsError::Kind::network);
  EXPECT_EQ(network.status(), 503);
  EXPECT_EQ(network.body(), "down");
}

TEST(AnalyticsStage, EachEnvironmentMapsToTheStageOfTheSameName) {
  for (const auto environment : {KivEnvironment::dev, KivEnvironment::beta, KivEnvironment::prod}) {
    EXPECT_EQ(rawValue(analyticsStage(environment)), toString(environment));
    EXPECT_EQ(environmentOf(analyticsStage(environment)), environment);
  }
}

}  // namespace
}  // namespace kiv
