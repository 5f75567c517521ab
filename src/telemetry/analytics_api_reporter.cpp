// The analytics client as the backend service's reporter: every answered
// request becomes one api_response event of type api_call, whose result
// names the backend call it answered.
#include "service/api_response_reporter.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {

void KivBFFAnalytics::reportApiResponse(const ApiResponseReport& report) {
  TextParams params = report.properties;
  if (report.call) {
    params.insert(resultParameter(*report.call == BackendCall::session ? KivAnalyticsResult::session
                                                                       : KivAnalyticsResult::transaction));
  }
  track(KivAnalyticsEvent::standard(KivAnalyticsEventName::apiResponse, KivAnalyticsEventType::apiCall),
        std::move(params));
}

std::shared_ptr<ApiResponseReporting> sharedApiResponseReporter() { return KivBFFAnalytics::shared(); }

}  // namespace kiv
