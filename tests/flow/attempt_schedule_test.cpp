// Generated schedules of everything that can race within one attempt:
// vendor statuses (duplicates, late ones after an outcome, on the main thread
// and off it, one inside the launch call), session results and prewarm
// answers, a mid-attempt violation, and the host letting go of the delegate
// or of the model. Whatever the order, the host hears at most one outcome
// (exactly one while both live), teardown runs at most once, and nothing is
// called once the model is gone.
//
// The schedules run twice: on the SDK's own loop with a scripted launcher,
// and on a loop and a capture vendor lent through the C interface, the
// vendor's statuses reported through its C calls from the host's threads
// (one inside the launch call, late ones refused there).
//
// Each schedule has its own seed; a failure prints it, and
//   KIV_PROPERTY_SEED=<seed> KIV_PROPERTY_COUNT=1 kivfll_flow_tests --gtest_filter='AttemptSchedules*'
// replays exactly that schedule. KIV_PROPERTY_COUNT sets how many run
// (10,000 by default), starting at KIV_PROPERTY_SEED (random by default).
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sstream>
#include <thread>

#include "base/overloaded.hpp"
#include "base/state_manager.hpp"
#include "c_api/host_services.hpp"
#include "flow/default_iproov_launcher.hpp"
#include "flow/face_liveness_view_model.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "support/forwarding_store.hpp"
#include "support/recording_delegate.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::RecordingDelegate;

const SessionResponse kValidSession =
    SessionResponse::decode(Json::parse(R"({"id":"session-1","supplier":{"type":"iproov","token":"vendor-token"},)"
                                        R"("livenessAttemptId":"attempt-1","signedResponse":"signed-1"})"))
        .value();

// The backend as the schedule answers it: a request waits until the
// schedule delivers its result.
class ScriptedService final : public KivServiceProtocol {
 public:
  void fetchSession(const FetchSessionRequest&, SessionCompletion completion) override {
    pending = std::move(completion);
  }
  void fetchTransactions(const FetchTransactionsRequest&, TransactionsCompletion) override { ++transactions; }

  SessionCompletion pending;
  int transactions = 0;
};

// The vendor as the schedule plays it. Shared with the test, since the
// model owns the launcher and may be released first.
struct VendorState {
  StatusCallback callback;  // the scripted launcher's
  kiv_capture capture = 0;  // the host vendor's
  std::optional<Status> duringLaunch;
  int launches = 0;
  int cancels = 0;
  int finalsAccepted = 0;  // by the host vendor's C calls

  bool launched() const { return callback || capture != 0; }
  void send(const Status& status);
};

kiv_status reportThroughC(kiv_capture capture, const Status& status) {
  return std::visit(
      Overloaded{
          [&](const Status::connecting&) { return kiv_capture_report_connecting(capture); },
          [&](const Status::connected&) { return kiv_capture_report_connected(capture); },
          [&](const Status::processing& p) { return kiv_capture_report_processing(capture, p.progress, nullptr); },
          [&](const Status::success&) { return kiv_capture_report_success(capture); },
          [&](const Status::failure& f) {
            std::vector<kiv_failure_reason> reasons;
            for (const auto& r : f.result.reasons) {
              reasons.push_back({r.feedbackCode.c_str(), r.localizedDescription.c_str()});
            }
            return kiv_capture_report_failure(capture, reasons.data(), reasons.size());
          },
          [&](const Status::canceled&) { return kiv_capture_report_canceled(capture, KIV_CANCELER_USER); },
          [&](const Status::error&) { return kiv_capture_report_error(capture, KIV_CAPTURE_ERROR_NETWORK, nullptr); },
      },
      status.value());
}

void VendorState::send(const Status& status) {
  if (capture == 0) return callback(status);
  if (reportThroughC(capture, status) == KIV_OK && status.isFinal()) ++finalsAccepted;
}

class ScriptedLauncher final : public IProovLaunching {
 public:
  explicit ScriptedLauncher(std::shared_ptr<VendorState> state) : state_(std::move(state)) {}
  Session launch(std::string, std::string, Options, IProov::Callback callback) override {
    ++state_->launches;
    state_->callback = std::move(callback);
    if (state_->duringLaunch) state_->send(*state_->duringLaunch);
    return Session(std::make_shared<Run>(state_));
  }

 private:
  struct Run final : CaptureRun {
    explicit Run(std::shared_ptr<VendorState> vendor) : state(std::move(vendor)) {}
    void cancel() override { ++state->cancels; }
    std::shared_ptr<VendorState> state;
  };
  std::shared_ptr<VendorState> state_;
};

// Counts deletions, which tell how often the attempt cleared the stored
// credentials (two per storeCredentials and two per teardown).
class CountingStore final : public testing::ForwardingStore {
 public:
  std::int32_t deleteAccount(std::string_view a) override {
    ++deletes;
    return ForwardingStore::deleteAccount(a);
  }
  int deletes = 0;
};

Status randomStatus(std::mt19937_64& random) {
  const Status statuses[] = {Status::connected{}, Status::processing{0.5, "Processing"},
                             Status::success{},   Status::failure{FailureResult{{{"eyes_closed", "Eyes closed"}}}},
                             Status::canceled{},  Status::error{IProovError(IProovError::Code::network)},
                             Status::connecting{}};
  return statuses[random() % 7];
}

std::uint64_t envNumber(const char* name, std::uint64_t fallback) {
  const char* text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 10) : fallback;
}

// The host of the C hooks: its main loop is the test's manual loop (it never
// drops a cancelled timer, so the SDK must), its vendor the schedule's.
kiv_main_queue hostQueue(ManualMainLoop& loop) {
  kiv_main_queue queue{};
  queue.user_data = &loop;
  queue.post = [](void* host, kiv_task task, void* data) {
    static_cast<ManualMainLoop*>(host)->post([task, data] { task(data); });
  };
  queue.post_after = [](void* host, double seconds, kiv_task task, void* data) -> std::uint64_t {
    static_cast<ManualMainLoop*>(host)->postAfter(seconds, [task, data] { task(data); });
    return 0;
  };
  queue.is_current = [](void* host) { return static_cast<ManualMainLoop*>(host)->isCurrent() ? 1 : 0; };
  return queue;
}

class AttemptSchedules : public testing::PlatformTest, public ::testing::WithParamInterface<bool> {
 protected:
  AttemptSchedules() {
    testPlatform().bundle().secureStore = store_;
    if (lentByHost()) {
      kiv_capture_vendor functions{};
      functions.user_data = this;
      functions.launch = [](void* host, kiv_capture capture, const char*, const char*, const char*) {
        auto& vendor = *static_cast<AttemptSchedules*>(host)->vendor_;
        ++vendor.launches;
        vendor.capture = capture;
        if (vendor.duringLaunch) vendor.send(*vendor.duringLaunch);
      };
      functions.cancel = [](void* host, kiv_capture) { ++static_cast<AttemptSchedules*>(host)->vendor_->cancels; };
      testPlatform().bundle().mainQueue = c_api::makeHostMainQueue(hostQueue(loop()));
      testPlatform().bundle().capture = c_api::makeHostCaptureVendor(functions);
    }
    testPlatform().install();
    host_ = platform()->ui->makeViewController();
  }

  bool lentByHost() const { return GetParam(); }

  // Plays the schedule of `seed`; returns what broke, empty when nothing did.
  std::string play(std::uint64_t seed);

  std::shared_ptr<CountingStore> store_ = std::make_shared<CountingStore>();
  std::shared_ptr<ViewController> host_;
  std::shared_ptr<VendorState> vendor_;
};

std::string AttemptSchedules::play(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::ostringstream trace;
  auto chance = [&](int percent) { return static_cast<int>(random() % 100) < percent; };

  auto vendor = vendor_ = std::make_shared<VendorState>();
  if (chance(10)) vendor->duringLaunch = randomStatus(random);
  std::unique_ptr<IProovLaunching> launcher = std::make_unique<ScriptedLauncher>(vendor);
  if (lentByHost()) launcher = std::make_unique<DefaultIProovLauncher>();
  auto service = std::make_shared<ScriptedService>();
  auto delegate = std::make_shared<RecordingDelegate>();
  bool modelGone = false;
  bool callAfterRelease = false;
  delegate->onCall = [&](const std::string&) { callAfterRelease = callAfterRelease || modelGone; };
  auto& integrity = fakeIntegrity();

  KivSDKStateManager::shared().endRun();
  EXPECT_TRUE(KivSDKStateManager::shared().beginRun());
  auto model = KivFaceLivenessLiteViewModel::make({.service = service,
                                                   .viewController = host_,
                                                   .personId = "person-1",
                                                   .launcher = std::move(launcher),
                                                   .delegate = delegate});
  std::weak_ptr<KivFaceLivenessLiteViewModel> weakModel = model;
  model->storeCredentials("token", "person-1");
  const int deletesAfterStore = store_->deletes;

  PrewarmState::Completion prewarmWaiter;
  switch (random() % 3) {
    case 0:
      trace << "ready;";
      model->start(PrewarmState::ready{kValidSession});
      break;
    case 1:
      trace << "pending;";
      model->start(PrewarmState::pending{[&](PrewarmState::Completion c) { prewarmWaiter = std::move(c); }});
      break;
    default:
      trace << "none;";
      model->start(PrewarmState::none{});
  }

  auto offMain = [](const std::function<void()>& work) { std::thread(work).join(); };
  auto deliverSession = [&](bool fail) {
    auto completion = std::exchange(service->pending, nullptr);
    APIResult<SessionResponse> result = kValidSession;
    if (fail) result = std::unexpected(APIServiceError(APIServiceError::httpError{500, "Server Error"}));
    offMain([&] { completion(result); });  // the service answers on its own thread
  };
  auto sendStatus = [&](const Status& status, bool inline_) {
    if (inline_) {
      vendor->send(status);
    } else {
      offMain([&] { vendor->send(status); });
    }
  };

  const int steps = static_cast<int>(random() % 12);
  for (int step = 0; step < steps; ++step) {
    switch (random() % 9) {
      case 0:
        if (service->pending) {
          const bool fail = chance(20);
          trace << (fail ? "session-error;" : "session;");
          deliverSession(fail);
        }
        break;
      case 1:
        if (prewarmWaiter) {
          const bool empty = chance(40);
          trace << (empty ? "prewarm-none;" : "prewarm;");
          auto waiter = std::exchange(prewarmWaiter, nullptr);
          waiter(empty ? std::nullopt : std::optional(kValidSession));
        }
        break;
      case 2:
      case 3:
      case 4:
        if (vendor->launched()) {
          const auto status = randomStatus(random);
          const bool inline_ = chance(50);
          trace << status.name() << (inline_ ? "@main;" : "@vendor;");
          sendStatus(status, inline_);
        }
        break;
      case 5:
        if (integrity.runningMonitors() > 0) {
          trace << "violation;";
          offMain([&] { integrity.reportViolation("agent"); });
        }
        break;
      case 6:
        if (delegate && chance(30)) {
          trace << "release-delegate;";
          delegate->onCall = nullptr;
          delegate.reset();
        }
        break;
      case 7:
        if (model && chance(20)) {
          trace << "release-model;";
          model.reset();
          modelGone = weakModel.expired();
        }
        break;
      default:
        trace << "run;";
        loop().runUntilIdle();
    }
  }

  // Let every started exchange finish, the way a live capture would end.
  for (int round = 0; round < 8 && model && !model->didDeliverResult(); ++round) {
    loop().runUntilIdle();
    if (prewarmWaiter) std::exchange(prewarmWaiter, nullptr)(kValidSession);
    if (service->pending) deliverSession(false);
    if (vendor->launched()) sendStatus(Status::success{}, true);
    loop().runUntilIdle();
  }
  loop().advance(KivLiteIProovPresenter::kStandardMaxHold + 1);

  std::ostringstream broken;
  const bool modelLived = model != nullptr;
  const int terminal = delegate ? delegate->terminalCalls() : 0;
  const int cleanUps = (store_->deletes - deletesAfterStore) / 2;
  if (terminal > 1) broken << terminal << " outcome calls; ";
  if (modelLived && delegate && terminal != 1) broken << "no outcome though model and delegate lived; ";
  if (cleanUps > 1) broken << cleanUps << " teardowns; ";
  if (modelLived && cleanUps != 1) broken << "no teardown though the model lived; ";
  if (callAfterRelease) broken << "delegate called after the model was gone; ";
  if (modelLived && KivSDKStateManager::shared().isRunning()) broken << "run guard left running; ";
  if (vendor->launches > 1) broken << vendor->launches << " launches; ";
  if (lentByHost()) {
    // The host's capture ends once: by its final status or by the SDK's
    // cancel, never both (no cancel reaches a capture that reported its end).
    if (vendor->finalsAccepted > 1) broken << vendor->finalsAccepted << " final statuses accepted; ";
    if (modelLived && vendor->launches == 1 && vendor->cancels + vendor->finalsAccepted != 1) {
      broken << "capture not ended once; ";
    }
  } else if (modelLived && vendor->launches == 1 && vendor->cancels != 1) {
    broken << "capture not cancelled once; ";
  }
  if (delegate) delegate->onCall = nullptr;
  model.reset();
  if (broken.str().empty()) return {};
  return broken.str() + "schedule: " + trace.str();
}

TEST_P(AttemptSchedules, EndInAtMostOneOutcomeAndOneTeardown) {
  const std::uint64_t base = envNumber("KIV_PROPERTY_SEED", std::random_device{}());
  const std::uint64_t count = envNumber("KIV_PROPERTY_COUNT", 10'000);
  std::cout << "schedules " << count << " from seed " << base << "\n";
  int failures = 0;
  for (std::uint64_t i = 0; i < count && failures < 5; ++i) {
    if (auto broken = play(base + i); !broken.empty()) {
      ++failures;
      ADD_FAILURE() << "seed " << base + i << ": " << broken;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Loops, AttemptSchedules, ::testing::Bool(), [](const ::testing::TestParamInfo<bool>& param) {
  return param.param ? "LentByHost" : "Sdk";
});

}  // namespace
}  // namespace kiv
