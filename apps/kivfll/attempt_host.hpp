// One liveness attempt hosted the way a real application hosts it: the
// Linux platform with the simulated capture vendor, a main loop on this
// thread, and the SDK reached only through its public facade.
//
//   AttemptOptions options{.environment = KivEnvironment::dev, .mobileToken = token, .personId = "p-1"};
//   AttemptReport report = hostAttempt(options);   // returns once the attempt ended
//   return report.outcome ? report.outcome->exitCode() : 2;
#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "attempt_printer.hpp"
#include "kiv/environment.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/testing/capture_script.hpp"

namespace kiv::cli {

struct AttemptOptions {
  KivEnvironment environment = KivEnvironment::dev;
  std::string mobileToken{};
  std::string personId{};
  bool prewarm = false;
  bool loading = false;
  CaptureScript capture{};
  CameraAuthorizationStatus camera = CameraAuthorizationStatus::authorized;
  bool grantWhenAsked = true;                            // the answer at the prompt, when camera is notDetermined
  std::optional<std::filesystem::path> dataDirectory{};  // the XDG data directory when absent
  AttemptPrinter::Form form = AttemptPrinter::Form::human;
  std::optional<int> crashSignal{};  // raised right after the vendor launches
  bool verbose = false;              // the SDK's diagnostic lines on standard error; dropped otherwise
};

struct AttemptReport {
  std::optional<Outcome> outcome;  // absent when the attempt never ended
  std::optional<std::chrono::duration<double>> setupToLaunch;
  std::optional<std::chrono::duration<double>> sessionRoundTrip;  // loading() to loaded()
  bool telemetrySettled = false;  // the attempt's background posts finished before the exit
};

// How long the host waits for the attempt's background posts once the
// outcome is in.
inline constexpr std::chrono::seconds kTelemetryGrace{2};

// Runs the attempt to its outcome, then waits up to kTelemetryGrace for its
// detached posts. Installs the platform; call once per process.
AttemptReport hostAttempt(const AttemptOptions& options);

}  // namespace kiv::cli
