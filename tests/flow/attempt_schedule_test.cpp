// Generated schedules of everything that can race within one attempt:
// vendor statuses (duplicates, late ones after an outcome, on the main thread
// and off it, one inside the launch call), session results and prewarm
// answers, a mid-attempt violation, and the host letting go of the delegate
// or of the model. Whatever the order, the host hears at most one outcome
// (exactly one while both live), teardown runs at most once, and nothing is
// called once the model is gone.
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

#include "flow/face_liveness_view_model.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/integrity/fake_device_integrity.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "base/state_manager.hpp"
#include "support/recording_delegate.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::RecordingDelegate;

SessionResponse validSession() {
  SessionResponse session;
  session.id = "session-1";
  session.supplier = SessionSupplier{.type = "iproov", .product = {}, .token = "vendor-token", .settings = {}};
  session.livenessAttemptId = "attempt-1";
  session.signedResponse = "signed-1";
  return session;
}

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
  StatusCallback callback;
  std::optional<Status> duringLaunch;
  int launches = 0;
  int cancels = 0;
};

class ScriptedLauncher final : public IProovLaunching {
 public:
  explicit ScriptedLauncher(std::shared_ptr<VendorState> state) : state_(std::move(state)) {}
  Session launch(std::string, std::string, Options, IProov::Callback callback) override {
    ++state_->launches;
    state_->callback = std::move(callback);
    if (state_->duringLaunch) state_->callback(*state_->duringLaunch);
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
class CountingStore final : public SecureItemStore {
 public:
  std::int32_t add(std::string_view s, std::string_view a, std::span<const std::uint8_t> v) override {
    return inner.add(s, a, v);
  }
  std::int32_t update(std::string_view s, std::string_view a, std::span<const std::uint8_t> v) override {
    return inner.update(s, a, v);
  }
  SecureItemCopy copyMatching(std::string_view s, std::string_view a) override { return inner.copyMatching(s, a); }
  std::int32_t deleteAccount(std::string_view a) override {
    ++deletes;
    return inner.deleteAccount(a);
  }
  MemorySecureStore inner;
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

class AttemptSchedules : public testing::PlatformTest {
 protected:
  AttemptSchedules() {
    testPlatform().bundle().secureStore = store_;
    testPlatform().install();
    host_ = platform()->ui->makeViewController();
  }

  // Plays the schedule of `seed`; returns what broke, empty when nothing did.
  std::string play(std::uint64_t seed);

  std::shared_ptr<CountingStore> store_ = std::make_shared<CountingStore>();
  std::shared_ptr<ViewController> host_;
};

std::string AttemptSchedules::play(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::ostringstream trace;
  auto chance = [&](int percent) { return static_cast<int>(random() % 100) < percent; };

  auto vendor = std::make_shared<VendorState>();
  if (chance(10)) vendor->duringLaunch = randomStatus(random);
  auto service = std::make_shared<ScriptedService>();
  auto delegate = std::make_shared<RecordingDelegate>();
  bool modelGone = false;
  bool callAfterRelease = false;
  delegate->onCall = [&](const std::string&) { callAfterRelease = callAfterRelease || modelGone; };
  auto& integrity = static_cast<FakeDeviceIntegrity&>(*platform()->integrity);

  KivSDKStateManager::shared().endRun();
  EXPECT_TRUE(KivSDKStateManager::shared().beginRun());
  auto model = KivFaceLivenessLiteViewModel::make({.service = service,
                                                   .viewController = host_,
                                                   .personId = "person-1",
                                                   .launcher = std::make_unique<ScriptedLauncher>(vendor),
                                                   .delegate = delegate});
  std::weak_ptr<KivFaceLivenessLiteViewModel> weakModel = model;
  model->storeCredentials("token", "person-1");
  const int deletesAfterStore = store_->deletes;

  PrewarmState::Completion prewarmWaiter;
  switch (random() % 3) {
    case 0:
      trace << "ready;";
      model->start(PrewarmState::ready{validSession()});
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
    APIResult<SessionResponse> result = validSession();
    if (fail) result = std::unexpected(APIServiceError(APIServiceError::httpError{500, "Server Error"}));
    offMain([&] { completion(result); });  // the service answers on its own thread
  };
  auto sendStatus = [&](const Status& status, bool inline_) {
    auto callback = vendor->callback;
    if (inline_) {
      callback(status);
    } else {
      offMain([&] { callback(status); });
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
          waiter(empty ? std::nullopt : std::optional(validSession()));
        }
        break;
      case 2:
      case 3:
      case 4:
        if (vendor->callback) {
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
    if (prewarmWaiter) std::exchange(prewarmWaiter, nullptr)(validSession());
    if (service->pending) deliverSession(false);
    if (vendor->callback) sendStatus(Status::success{}, true);
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
  if (modelLived && vendor->launches == 1 && vendor->cancels != 1) broken << "capture not cancelled once; ";
  if (delegate) delegate->onCall = nullptr;
  model.reset();
  if (broken.str().empty()) return {};
  return broken.str() + "schedule: " + trace.str();
}

TEST_F(AttemptSchedules, EndInAtMostOneOutcomeAndOneTeardown) {
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

}  // namespace
}  // namespace kiv
