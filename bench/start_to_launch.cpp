// From startSDK() to the capture vendor's launch, through the public facade
// against the sandbox backend on loopback, with the simulated vendor:
//
// - with a fresh prewarm, no request stands between the two, so the figure
//   is the SDK's own time;
// - without, the liveness session is created first: one round trip.
//
// Both also run with the secure store in memory: the store's synced
// commits (the credentials are written at every start) are disk time, the
// rest is the SDK's own.
//
// The baseline, measured in the same run, is that round trip made by a raw
// libcurl loop: the same session request over one kept-alive connection to
// the same server. Iteration times are manual: only start to launch counts,
// not the rest of the attempt or the telemetry it sends.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>

#include "kiv/face_liveness_lite.hpp"
#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/traffic_counter.hpp"
#include "kiv/testing/face_liveness_lite_testing.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "raw_post.hpp"
#include "sandbox/sandbox_server.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kPersonId = "bench-person-1";
constexpr std::string_view kSessionBody =
    R"({"personId":"bench-person-1","sdk":{"version":"3.2.1","platform":"iOS"},"clientData":{}})";

// Notes when the SDK launches the inner vendor.
class TimedVendor final : public kiv::CaptureVendor {
 public:
  explicit TimedVendor(std::shared_ptr<kiv::CaptureVendor> inner) : inner_(std::move(inner)) {}
  std::shared_ptr<kiv::CaptureRun> launch(std::string streamingURL, std::string token, kiv::Options options,
                                          kiv::StatusCallback callback) override {
    launchedAt = Clock::now();
    return inner_->launch(std::move(streamingURL), std::move(token), std::move(options), std::move(callback));
  }
  Clock::time_point launchedAt;

 private:
  std::shared_ptr<kiv::CaptureVendor> inner_;
};

class Silent final : public kiv::Console {
 public:
  void writeLine(std::string_view) override {}
};

class FinishSignal final : public kiv::KivFaceLivenessLiteDelegate {
 public:
  void didFinishWithSuccess(const kiv::KivFaceLivenessLiteResult&) override { done(true); }
  void didFinishWithFailure(kiv::KivFailureType, const std::optional<std::string>&,
                            const std::optional<std::string>&) override {
    done(false);
  }
  void didFinishWithError(kiv::KivErrorType, const std::string&) override { done(false); }
  void cancelled() override { done(false); }
  void loading() override {}
  void loaded() override {}

  std::promise<bool> finished;

 private:
  void done(bool success) { finished.set_value(success); }
};

enum class Store { disk, memory };

// The Linux platform with the sandbox as the dev backend, its files in a
// scratch directory, the simulated vendor behind a launch clock, and the
// main loop on its own thread.
class Host {
 public:
  explicit Host(Store store = Store::disk) {
    std::string pattern = (std::filesystem::temp_directory_path() / "kivfll-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory_ = pattern;
    auto started = kiv::sandbox::SandboxServer::start({});
    if (!started) std::abort();
    sandbox_ = std::move(*started);
    token_ = sandbox_->mintMobileToken("bench", std::string("eu.capture.sandbox.example"));
    if (!kiv::setBackendRootURL(kiv::KivEnvironment::dev, sandbox_->rootURL())) std::abort();
    auto bundle = kiv::makeLinuxPlatform();
    loop_ = std::static_pointer_cast<kiv::MainLoop>(bundle.mainQueue);
    bundle.http = counter_->wrap(bundle.http);
    bundle.taskPool = counter_->wrap(bundle.taskPool);
    bundle.secureStore =
        store == Store::memory ? std::make_shared<kiv::MemorySecureStore>() : kiv::makeLinuxSecureStore(directory_);
    bundle.defaults = kiv::makeLinuxUserDefaults(directory_);
    bundle.crash = kiv::makeLinuxCrashPrimitives(directory_);
    bundle.console = std::make_shared<Silent>();
    bundle.camera = std::make_shared<kiv::FixedCameraAuthorization>(kiv::CameraAuthorizationStatus::authorized, true);
    vendor_ = std::make_shared<TimedVendor>(std::make_shared<kiv::SimulatedCaptureVendor>());
    bundle.capture = vendor_;
    kiv::installPlatform(bundle);
    thread_ = std::thread([loop = loop_] { loop->run(); });
  }
  ~Host() {
    loop_->stop();
    thread_.join();
    kiv::installPlatform(kiv::makeLinuxPlatform());
    kiv::resetBackendRootURL(kiv::KivEnvironment::dev);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  const std::string& token() const { return token_; }
  std::string sessionURL() const { return sandbox_->rootURL() + "bff/sessions?asyncAttempt=true"; }

  // One attempt; returns start to launch. With `prewarm` the session is
  // fetched before the start. Either way what setup set going (and the
  // prewarm) settles first: a host sets up well before a person taps start.
  Clock::duration attempt(bool prewarm) {
    auto delegate = std::make_shared<FinishSignal>();
    std::shared_ptr<kiv::KivFaceLivenessLiteSDK> sdk;
    onMain([&] {
      sdk = kiv::KivFaceLivenessLiteSDK::make();
      sdk->setDelegate(delegate);
      sdk->setup(token_, std::string(kPersonId), std::nullopt, nullptr, std::nullopt, kiv::KivEnvironment::dev, false);
      if (prewarm) sdk->prewarm();
    });
    settle();
    Clock::time_point startedAt;
    onMain([&] {
      startedAt = Clock::now();
      sdk->startSDK(kiv::platform()->ui->makeViewController());
    });
    if (!delegate->finished.get_future().get()) std::abort();
    settle();
    onMain([&] { sdk.reset(); });
    return vendor_->launchedAt - startedAt;
  }

 private:
  void onMain(std::function<void()> task) {
    std::promise<void> ran;
    loop_->post([&] {
      task();
      ran.set_value();
    });
    ran.get_future().wait();
  }
  // Until no request and no pool task is under way at two looks in a row.
  void settle() const {
    for (bool wasIdle = false;;) {
      const bool idle = counter_->idle();
      if (idle && wasIdle) return;
      wasIdle = idle;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  std::filesystem::path directory_;
  std::unique_ptr<kiv::sandbox::SandboxServer> sandbox_;
  std::string token_;
  std::shared_ptr<kiv::TrafficCounter> counter_ = std::make_shared<kiv::TrafficCounter>();
  std::shared_ptr<kiv::MainLoop> loop_;
  std::shared_ptr<TimedVendor> vendor_;
  std::thread thread_;
};

void startToLaunch(benchmark::State& state, bool prewarm, Store store = Store::disk) {
  Host host(store);
  for (auto _ : state) {
    const auto elapsed = host.attempt(prewarm);
    state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
  }
}

void BM_StartToLaunchPrewarmed(benchmark::State& state) { startToLaunch(state, true); }
BENCHMARK(BM_StartToLaunchPrewarmed)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void BM_StartToLaunchCold(benchmark::State& state) { startToLaunch(state, false); }
BENCHMARK(BM_StartToLaunchCold)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void BM_StartToLaunchPrewarmedMemoryStore(benchmark::State& state) { startToLaunch(state, true, Store::memory); }
BENCHMARK(BM_StartToLaunchPrewarmedMemoryStore)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void BM_StartToLaunchColdMemoryStore(benchmark::State& state) { startToLaunch(state, false, Store::memory); }
BENCHMARK(BM_StartToLaunchColdMemoryStore)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

// The session request of a cold start, made by a raw libcurl loop over one
// kept-alive connection.
void BM_BaselineSessionRoundTrip(benchmark::State& state) {
  Host host;
  kiv::bench::RawPost post(host.sessionURL(), {"Content-Type: application/json", "Authorization: " + host.token()},
                           std::string(kSessionBody));
  for (auto _ : state) {
    const auto startedAt = Clock::now();
    if (post.perform() != 200) std::abort();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - startedAt).count());
  }
}
BENCHMARK(BM_BaselineSessionRoundTrip)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

}  // namespace
