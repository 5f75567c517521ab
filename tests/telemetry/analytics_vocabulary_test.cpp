#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/wire_values.hpp"
#include "telemetry/analytics_error.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {
namespace {

using testing::rawValues;
using testing::words;

// Event names are what the backend's dashboards match on, and endpoints are
// persisted with queued events; most are sent by no path a test drives. The
// other vocabularies are pinned where they go on the wire.
TEST(AnalyticsVocabulary, EventNamesAndEndpointsAreExactAndInDeclarationOrder) {
  EXPECT_EQ(rawValues<KivAnalyticsEndpoint>(), words("identify-analytics track-analytics crashlytics"));
  EXPECT_EQ(
      rawValues<KivAnalyticsEventName>(),
      words("identify start_sdk bridge_params first_open crash provider_response provider_event sdk_result "
            "sdk_closed camera_permission camera_permission_granted camera_permission_requested "
            "camera_permission_denied sdk_configuration device_identified app_identified device_data api_response "
            "fingerprint_response fingerprint_implementation_missing capture_screen_opened "
            "document_back_capture_started document_front_capture_started preview_screen_opened preview_accepted "
            "preview_screen_retry_clicked document_captured_validated upload_route_called validation_route_called "
            "document_validated document_capture_completed capture_finished sdk_error internal_error "
            "attestation_route_called permission_requested permission_granted permission_denied no_connection "
            "sdk_background"));
  std::vector<std::string> fixed;
  for (std::size_t i = 0; i < kFixedEvents.size(); ++i) {
    const auto& form = kFixedEvents[i];
    EXPECT_EQ(form.event, static_cast<KivAnalyticsFixedEvent>(i));
    fixed.push_back(std::string(rawValue(form.name)) + "/" + std::string(rawValue(form.type)));
  }
  EXPECT_EQ(fixed, words("identify/identify start_sdk/user_interaction first_open/user_interaction crash/crash "
                         "capture_screen_opened/user_interaction document_back_capture_started/user_interaction "
                         "document_front_capture_started/user_interaction preview_screen_opened/user_interaction "
                         "preview_accepted/user_interaction preview_screen_retry_clicked/user_interaction "
                         "document_captured_validated/sdk_step upload_route_called/api_call "
                         "validation_route_called/api_call document_validated/sdk_step "
                         "document_capture_completed/sdk_step capture_finished/sdk_step sdk_error/sdk_error "
                         "internal_error/sdk_error attestation_route_called/api_call permission_requested/sdk_step "
                         "permission_granted/sdk_step permission_denied/sdk_step no_connection/sdk_error"));
}

TEST(AnalyticsError, DescriptionsAreTheTextsShown) {
  const std::vector<std::pair<KivAnalyticsError, std::string>> cases{
      {KivAnalyticsError::network(500, "oops"), "Network error (status: 500) body: oops"},
      {KivAnalyticsError::network(429, std::nullopt), "Network error (status: 429) body: <nil>"},
      {KivAnalyticsError::unknown("boom"), "boom"},
      {KivAnalyticsError::notInitialized(), "KIV Analytics is not initialized."},
      {KivAnalyticsError::invalidURL(), "Invalid URL."},
      {KivAnalyticsError::encodingFailed(), "Failed to encode JSON body."}};
  for (const auto& [error, text] : cases) {
    EXPECT_EQ(error.description(), text);
    EXPECT_STREQ(error.what(), text.c_str());
  }
}

}  // namespace
}  // namespace kiv
