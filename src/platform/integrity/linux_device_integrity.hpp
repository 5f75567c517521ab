// The Linux device-integrity checks, and the pure parsers they are built on
// (kept visible so that tests feed them text instead of a real tracer).
//
// A violation is a debugger or tracer attached to the process (TracerPid in
// /proc/self/status) or an instrumentation toolkit mapped into it (a mapping
// in /proc/self/maps whose file name contains "frida" or "gum-js").
//
// The monitor re-checks every kMonitorInterval seconds. The interval is a
// delayed task on the main queue, so a test's fake clock drives it, but the
// files are read on the serial queue kMonitorQueueLabel, never on the main
// thread. The callback runs on that queue, and stop() waits for a callback
// running there to return (unless the callback itself calls stop()).
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "kiv/platform/device_integrity.hpp"

namespace kiv {

// Nothing, or "a debugger is attached (TracerPid N)" when the TracerPid line
// of a /proc/<pid>/status text names another process. A text without that
// line, or with a value that is not a number, reports nothing: a kernel that
// does not say cannot be held against the person.
std::optional<std::string> tracerViolation(std::string_view status);

// Nothing, or "an instrumentation toolkit is loaded (NAME)" for the first
// mapping of a /proc/<pid>/maps text whose file name (the last component of
// its path, compared case-insensitively) contains "frida" or "gum-js". A
// directory called frida does not count; NAME is cut to 120 bytes.
std::optional<std::string> instrumentationViolation(std::string_view maps);

class LinuxDeviceIntegrity final : public DeviceIntegrity {
 public:
  static constexpr double kMonitorInterval = 2.0;
  static constexpr std::string_view kMonitorQueueLabel = "kiv.integrity.monitor";
  // At most this much of each file is read; the rest is ignored.
  static constexpr std::size_t kMaxFileBytes = 8u << 20;

  // `processDirectory` holds the status and maps files to read: the
  // process's own unless a test points elsewhere.
  explicit LinuxDeviceIntegrity(std::filesystem::path processDirectory = "/proc/self");

  std::optional<std::string> check() override;
  std::shared_ptr<DeviceIntegrityMonitor> startMonitor(std::function<void(std::string)> onViolation) override;

 private:
  std::filesystem::path directory_;
};

}  // namespace kiv
