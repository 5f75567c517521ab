// The analytics client as the backend service's reporter: every answered
// request becomes one api_response event of type api_call.
#include "service/api_response_reporter.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {

void KivBFFAnalytics::reportApiResponse(const ApiResponseProperties& properties) {
  track(KivAnalyticsEvent::standard(KivAnalyticsEventName::apiResponse, KivAnalyticsEventType::apiCall), properties);
}

std::shared_ptr<ApiResponseReporting> sharedApiResponseReporter() { return KivBFFAnalytics::shared(); }

}  // namespace kiv
