#include "telemetry/crash_report_sender.hpp"

#include <mutex>

#include "kiv/platform/platform.hpp"
#include "platform/process_state.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

struct SenderSlot {
  std::mutex mutex;
  CrashReportSender sender;
};

SenderSlot& slot() {
  static SenderSlot instance;
  return instance;
}

const process_state::ResetRegistration kReset{[] { setCrashReportSender(nullptr); }};

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

void setCrashReportSender(CrashReportSender sender) {
  std::lock_guard lock(slot().mutex);
  slot().sender = std::move(sender);
}

CrashReportSender crashReportSender() {
  std::lock_guard lock(slot().mutex);
  return slot().sender ? slot().sender : CrashReportSender(postThroughAnalytics);
}

}  // namespace kiv
