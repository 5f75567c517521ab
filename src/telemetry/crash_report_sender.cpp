#include "telemetry/crash_report_sender.hpp"

#include <mutex>

#include "platform/process_state.hpp"

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

}  // namespace

void setCrashReportSender(CrashReportSender sender) {
  std::lock_guard lock(slot().mutex);
  slot().sender = std::move(sender);
}

CrashReportSender crashReportSender() {
  std::lock_guard lock(slot().mutex);
  return slot().sender;
}

}  // namespace kiv
