#include "attempt_host.hpp"

#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <mutex>

#include "kiv/face_liveness_lite.hpp"
#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/traffic_counter.hpp"
#include "kiv/testing/face_liveness_lite_testing.hpp"
#include "observed_capture_vendor.hpp"

namespace kiv::cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kSettlePoll = 0.02;  // seconds between two looks at the traffic

// Standard output carries what the host shows of the attempt; the SDK's own
// diagnostic lines (every analytics request and answer among them) go to
// standard error when asked for, and nowhere otherwise.
class StderrConsole final : public Console {
 public:
  explicit StderrConsole(bool enabled) : enabled_(enabled) {}
  void writeLine(std::string_view line) override {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    std::cerr << line << '\n' << std::flush;
  }

 private:
  const bool enabled_;
  std::mutex mutex_;
};

// Looks at the traffic every kSettlePoll seconds and calls `done` once it
// was idle twice in a row (a chain of work never reads idle twice across a
// poll) or the deadline passed.
void settle(const std::shared_ptr<MainQueue>& loop, const std::shared_ptr<TrafficCounter>& counter,
            Clock::time_point deadline, bool wasIdle, std::function<void(bool settled)> done) {
  const bool idle = counter->idle();
  if (idle && wasIdle) return done(true);
  if (Clock::now() >= deadline) return done(false);
  loop->postAfter(kSettlePoll, [loop, counter, deadline, idle, done = std::move(done)]() mutable {
    settle(loop, counter, deadline, idle, std::move(done));
  });
}

// The terminal: the SDK's own main loop, and a controller nobody sees.
class TerminalStage final : public AttemptStage {
 public:
  void prepare(Platform& bundle) override { loop_ = std::static_pointer_cast<MainLoop>(bundle.mainQueue); }
  void run(std::function<void()> start) override {
    loop_->post(std::move(start));
    loop_->run();
  }
  void stop() override { loop_->stop(); }
  std::shared_ptr<ViewController> hostController() override { return platform()->ui->makeViewController(); }

 private:
  std::shared_ptr<MainLoop> loop_;
};

}  // namespace

AttemptReport hostAttempt(const AttemptOptions& options) {
  AttemptReport report;
  auto bundle = makeLinuxPlatform();
  auto stage = options.stage ? options.stage : std::make_shared<TerminalStage>();
  auto counter = std::make_shared<TrafficCounter>();
  bundle.http = counter->wrap(bundle.http);
  bundle.taskPool = counter->wrap(bundle.taskPool);
  if (options.dataDirectory) {
    bundle.secureStore = makeLinuxSecureStore(options.dataDirectory);
    bundle.defaults = makeLinuxUserDefaults(options.dataDirectory);
    bundle.crash = makeLinuxCrashPrimitives(options.dataDirectory);
  }
  bundle.camera = std::make_shared<FixedCameraAuthorization>(options.camera, options.grantWhenAsked);
  bundle.console = std::make_shared<StderrConsole>(options.verbose);

  const auto interactive = ::isatty(::fileno(options.transcript)) == 1;
  std::optional<Clock::time_point> setupAt, loadingAt;
  std::shared_ptr<AttemptPrinter> printer;
  std::shared_ptr<MainQueue> loop;
  auto onLaunch = [&] {
    if (setupAt) report.setupToLaunch = Clock::now() - *setupAt;
    printer->vendorLaunched();
    if (options.crashSignal) {
      // After the launch returned, as a crash inside the capture would come.
      // A real fault comes back once the crash handler returns; the second
      // signal meets the handler put back then and ends the process.
      loop->post([signal = *options.crashSignal] {
        std::raise(signal);
        std::raise(signal);
      });
    }
  };
  auto onStatus = [&](const Status& status) {
    printer->vendorStatus(status);
    stage->vendorStatus(status);
  };
  stage->prepare(bundle);
  loop = bundle.mainQueue;
  bundle.capture = stage->showCapture(std::make_shared<ObservedCaptureVendor>(
      std::make_shared<SimulatedCaptureVendor>(options.capture), loop, onLaunch, onStatus));
  installPlatform(bundle);

  std::shared_ptr<KivFaceLivenessLiteSDK> sdk;
  printer = std::make_shared<AttemptPrinter>(
      options.form, options.transcript, interactive, loop, [&](const Outcome& outcome) {
        stage->finished(outcome);
        // The attempt tears down after the call returns; the posts it started
        // then get their grace period before the loop stops.
        loop->post([&] {
          settle(loop, counter, Clock::now() + kTelemetryGrace, false, [&](bool settled) {
            report.telemetrySettled = settled;
            loop->postAfter(stage->lingerSeconds(), [&] { stage->stop(); });
          });
        });
      });
  printer->onLoading = [&](bool on) {
    stage->loading(on);
    if (on) {
      loadingAt = Clock::now();
    } else if (loadingAt && !report.sessionRoundTrip) {
      report.sessionRoundTrip = Clock::now() - *loadingAt;
    }
  };

  // The main loop is not current until it runs, so the first SDK calls are
  // made from inside it, once the person starts.
  stage->run([&] {
    sdk = KivFaceLivenessLiteSDK::make();
    sdk->setDelegate(printer);
    setupAt = Clock::now();
    sdk->setup(options.mobileToken, options.personId, std::nullopt, nullptr, options.uiCustomization,
               options.environment, options.loading);
    if (options.prewarm) sdk->prewarm();
    sdk->startSDK(stage->hostController());
  });
  report.outcome = printer->outcome();
  return report;
}

}  // namespace kiv::cli
