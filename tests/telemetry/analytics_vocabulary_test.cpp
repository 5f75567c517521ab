#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/wire_values.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {
namespace {

using testing::rawValues;
using testing::words;

// Event names are what the backend's dashboards match on, and endpoints are
// persisted with queued events; most are sent by no path a test drives. The
// other vocabularies, and the types of the fixed events, are pinned where
// they go on the wire.
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
}

}  // namespace
}  // namespace kiv
