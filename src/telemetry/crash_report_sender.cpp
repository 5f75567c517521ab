#include "telemetry/crash_report_sender.hpp"

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "kiv/platform/platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

ProcessSlot<CrashReportSender>& slot() {
  static NoDestructor<ProcessSlot<CrashReportSender>> instance;
  return *instance;
}

// Without a sender of its own the process posts through the shared analytics
// client. Its completion arrives on the HTTP session's thread; nothing waits
// for it here, so the caller (the crash worker) keeps its own one-second
// bound. A report that was neither delivered nor queued is a failure: the
// record then stays stored for the next run.
bool postThroughAnalytics(const CrashRecord&, std::string stackTrace, CrashReportResult result,
                          CrashReportCompletion completion) {
  auto client = KivBFFAnalytics::shared();
  if (!client) return false;
  client->sendCrashReport(
      std::move(stackTrace),
      result == CrashReportResult::signal ? KivAnalyticsResult::signal : KivAnalyticsResult::exception,
      [completion = std::move(completion)](std::exception_ptr error) { completion(error == nullptr); });
  return true;
}

}  // namespace

void setCrashReportSender(CrashReportSender sender) { slot().set(std::move(sender)); }

CrashReportSender crashReportSender() {
  auto sender = slot().get();
  return sender ? sender : CrashReportSender(postThroughAnalytics);
}

}  // namespace kiv
