// How a crash report leaves the process: the one place where the crash
// handler meets the analytics client.
//
// By default reports go to the shared analytics client's crash post; with
// no client configured nothing is posted and the record stays stored for the
// next run. Tests and hosts may install another sender.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "kiv/raw_value.hpp"
#include "telemetry/crash_record.hpp"

namespace kiv {

// The result a crash report carries: the analytics vocabulary's cases of the
// same raw values.
enum class CrashReportResult { exception, signal };

template <>
struct RawValueTraits<CrashReportResult> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<CrashReportResult, std::string_view>, 2> table{{
      {CrashReportResult::exception, "exception"},
      {CrashReportResult::signal, "signal"},
  }};
};

// Called once, on any thread: true when the report was posted (or queued for
// a later post), false when the post failed.
using CrashReportCompletion = std::function<void(bool success)>;

// Starts the post of one report. `record` is the record being sent (with
// "type" when resent), `stackTrace` and `result` what the post carries.
// Returns false, and never calls `completion`, when there is no analytics
// client to post through.
using CrashReportSender = std::function<bool(const CrashRecord& record, std::string stackTrace,
                                             CrashReportResult result, CrashReportCompletion completion)>;

// Process-wide. Without an installed sender, crashReportSender() posts
// through KivBFFAnalytics::shared() (false when there is no client). Safe
// from any thread.
void setCrashReportSender(CrashReportSender sender);
CrashReportSender crashReportSender();

}  // namespace kiv
