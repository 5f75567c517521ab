#include "telemetry/crash_report_sender.hpp"

#include "kiv/platform/platform.hpp"
#include "platform/process_state.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

ProcessSlot<CrashReportSender>& slot() {
  static ProcessSlot<CrashReportSender> instance;
  return instance;
}

// Without a sender of its own the process posts through the shared analytics
// client. The wait for the post runs on the task pool so that the caller (the
// crash worker) keeps its own one-second bound.
bool postThroughAnalytics(const CrashRecord&, std::string stackTrace, CrashReportResult result,
                          CrashReportCompletion completion) {
  auto client = KivBFFAnalytics::shared();
  if (!client) return false;
  auto posted = client->sendCrashReport(std::move(stackTrace), result == CrashReportResult::signal
                                                                   ? KivAnalyticsResult::signal
                                                                   : KivAnalyticsResult::exception);
  platform()->taskPool->post([posted, completion = std::move(completion)] {
    try {
      posted.get();
    } catch (...) {
      completion(false);
      return;
    }
    completion(true);
  });
  return true;
}

}  // namespace

void setCrashReportSender(CrashReportSender sender) { slot().set(std::move(sender)); }

CrashReportSender crashReportSender() {
  auto sender = slot().get();
  return sender ? sender : CrashReportSender(postThroughAnalytics);
}

}  // namespace kiv
