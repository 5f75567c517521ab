// One liveness attempt hosted the way a real application hosts it: the
// Linux platform with the simulated capture vendor, a main loop on this
// thread (the terminal's, or a window's with `kivfll demo --window`), and the
// SDK reached only through its public facade.
//
//   AttemptOptions options{.environment = KivEnvironment::dev, .mobileToken = token, .personId = "p-1"};
//   AttemptReport report = hostAttempt(options);   // returns once the attempt ended
//   return report.outcome ? report.outcome->exitCode() : 2;
#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "attempt_printer.hpp"
#include "kiv/environment.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/testing/capture_script.hpp"
#include "kiv/platform/capture/capture_vendor.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_controller.hpp"
#include "kiv/ui_customization.hpp"

namespace kiv::cli {

// Where an attempt runs and what the host shows of it: the terminal's own
// loop (the default), or a window (window_stage.hpp).
class AttemptStage {
 public:
  virtual ~AttemptStage() = default;
  // Sets the main queue and the screens of the bundle before it is installed.
  virtual void prepare(Platform& bundle) = 0;
  // The vendor the attempt launches: `vendor` itself, or with its screen drawn.
  virtual std::shared_ptr<CaptureVendor> showCapture(std::shared_ptr<CaptureVendor> vendor) { return vendor; }
  // Runs the main loop on this thread until stop(), and calls `start` inside
  // it when the person starts the attempt.
  virtual void run(std::function<void()> start) = 0;
  virtual void stop() = 0;
  // The controller the SDK presents over; main thread.
  virtual std::shared_ptr<ViewController> hostController() = 0;
  // What the host hears, on the main thread.
  virtual void loading(bool /*on*/) {}
  virtual void vendorStatus(const Status& /*status*/) {}
  virtual void finished(const Outcome& /*outcome*/) {}
  // Called once the attempt's posts settled, before the loop stops: how
  // long the host's screen stays up after that, in seconds.
  virtual double lingerSeconds() const { return 0; }
};

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
  std::FILE* transcript = stdout;    // where the delegate calls and vendor statuses are printed
  std::optional<int> crashSignal{};  // raised right after the vendor launches
  bool verbose = false;              // the SDK's diagnostic lines on standard error; dropped otherwise
  std::optional<DorvinUiCustomization> uiCustomization{};
  std::shared_ptr<AttemptStage> stage{};  // the terminal's loop when absent
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
