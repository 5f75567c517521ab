#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/state_manager.hpp"
#include "kiv/backend.hpp"
#include "kiv/platform/notification_center.hpp"
#include "sdk/prewarm_cache.hpp"
#include "service/key_chain_manager.hpp"
#include "support/test_platform.hpp"

namespace kiv::testing {
namespace {

const PrewarmCache::Identity kAlice{"token-a", "alice", KivEnvironment::dev};

// The backend as the test answers it, one fetch at a time.
class HeldService final : public KivServiceProtocol {
 public:
  void fetchSession(const FetchSessionRequest& request, SessionCompletion completion) override {
    requests.push_back(request);
    pending.push_back(std::move(completion));
  }
  void fetchTransactions(const FetchTransactionsRequest&, TransactionsCompletion) override {}

  std::vector<FetchSessionRequest> requests;
  std::vector<SessionCompletion> pending;
};

class PrewarmCacheTest : public PlatformTest {
 public:
  PrewarmCacheTest() { cache->setIdentity(kAlice); }

  void prewarm() {
    cache->prewarm([this] { return service; });
  }
  // Answers the oldest fetch (as the network would, from any thread) and
  // lets its completion reach the main thread.
  void answer(bool succeeded = true) {
    ASSERT_FALSE(service->pending.empty());
    auto completion = std::move(service->pending.front());
    service->pending.erase(service->pending.begin());
    SessionResponse session;
    session.id = "s-1";
    if (succeeded) {
      completion(session);
    } else {
      completion(std::unexpected(APIServiceError(APIServiceError::httpError{500, "down"})));
    }
    loop().runUntilIdle();
  }
  void enterBackground() {
    platform()->notifications->post(kApplicationDidEnterBackgroundNotification);
    loop().runUntilIdle();
  }
  // What a run starting now is handed: the session's id, "pending" or "none".
  std::string taken() {
    const auto state = cache->take();
    if (const auto* ready = state.as<PrewarmState::ready>()) return ready->response.id.value_or("?");
    return state.as<PrewarmState::pending>() ? "pending" : "none";
  }
  static bool credentialsStored() {
    return KivKeyChainManager::shared()->readString(kKivSDKService, kMobileTokenKey).has_value();
  }
  static void beginRun() { ASSERT_TRUE(KivSDKStateManager::shared().beginRun()); }
  void age(double seconds) { clock().advance(seconds); }

  std::shared_ptr<HeldService> service = std::make_shared<HeldService>();
  std::shared_ptr<PrewarmCache> cache = PrewarmCache::make();
};

TEST_F(PrewarmCacheTest, FetchesOnlyWhenNothingUsableIsUnderWayOrKept) {
  prewarm();
  prewarm();  // under way
  ASSERT_EQ(service->requests.size(), 1u);
  EXPECT_EQ(service->requests[0].baseURL, backendRootURL(KivEnvironment::dev));
  EXPECT_EQ(service->requests[0].sessionBodyRequest.personId, "alice");
  EXPECT_EQ(KivKeyChainManager::shared()->readString(kKivSDKService, kPersonIdKey), "alice");
  answer();
  prewarm();  // a fresh session is kept
  clock().advance(PrewarmCache::kFreshnessSeconds);
  prewarm();  // a stale one is not
  EXPECT_EQ(service->requests.size(), 2u);
  answer();
  clock().advance(PrewarmCache::kFreshnessSeconds);
  beginRun();
  prewarm();  // nor during a run
  EXPECT_EQ(service->requests.size(), 2u);
}

// What becomes of a prewarm when something happens during its fetch or
// after it: kept for the next run while fresh (0 <= age < 90 s), or dropped,
// with the stored credentials unless a run uses them.
struct DropCase {
  const char* name;
  bool duringFetch;  // else once the session is kept
  std::function<void(PrewarmCacheTest&)> event;
  bool succeeded;
  bool kept;
  bool credentialsStay;
};

class PrewarmDropTest : public PrewarmCacheTest, public ::testing::WithParamInterface<DropCase> {};

TEST_P(PrewarmDropTest, OnlyTheSameIdentityInTheForegroundKeepsTheSession) {
  const auto& c = GetParam();
  prewarm();
  if (c.duringFetch) c.event(*this);
  answer(c.succeeded);
  if (!c.duringFetch) c.event(*this);
  EXPECT_EQ(credentialsStored(), c.credentialsStay);
  EXPECT_EQ(cache->hasUsable(), c.kept);
  EXPECT_EQ(taken(), c.kept ? "s-1" : "none");
  EXPECT_EQ(taken(), "none");  // handed over once
}

const auto kNothing = [](PrewarmCacheTest&) {};
const auto kSameIdentity = [](PrewarmCacheTest& t) { t.cache->setIdentity(kAlice); };
const auto kOtherPerson = [](PrewarmCacheTest& t) { t.cache->setIdentity({"token-a", "bob", KivEnvironment::dev}); };
const auto kOtherEnvironment = [](PrewarmCacheTest& t) {
  t.cache->setIdentity({"token-a", "alice", KivEnvironment::beta});
};
const auto kBackground = [](PrewarmCacheTest& t) { t.enterBackground(); };
const auto kRunStarts = [](PrewarmCacheTest&) { PrewarmCacheTest::beginRun(); };
const auto after = [](double seconds) { return [seconds](PrewarmCacheTest& t) { t.age(seconds); }; };

INSTANTIATE_TEST_SUITE_P(Events, PrewarmDropTest,
                         ::testing::Values(DropCase{"SameIdentity", false, kSameIdentity, true, true, true},
                                           DropCase{"AlmostStale", false, after(89.9), true, true, true},
                                           DropCase{"Stale", false, after(90.0), true, false, true},
                                           DropCase{"ClockTurnedBack", false, after(-1.0), true, false, true},
                                           DropCase{"FailedFetch", true, kNothing, false, false, false},
                                           DropCase{"OtherPerson", false, kOtherPerson, true, false, false},
                                           DropCase{"OtherEnvironmentDuringTheFetch", true, kOtherEnvironment, true,
                                                    false, false},
                                           DropCase{"Background", false, kBackground, true, false, false},
                                           DropCase{"BackgroundDuringTheFetch", true, kBackground, true, false, false},
                                           // The run reads the stored credentials; it deletes them itself.
                                           DropCase{"RunStartedDuringTheFetch", true, kRunStarts, true, false, true}),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

// A run that starts during the fetch waits for it and is answered exactly
// once: with the session, or with none when the fetch keeps nothing.
struct WaitCase {
  const char* name;
  bool succeeded;
  bool background;  // while the run waits
  std::string answered;
};

class PrewarmWaitTest : public PrewarmCacheTest, public ::testing::WithParamInterface<WaitCase> {};

TEST_P(PrewarmWaitTest, WaitingRunIsAnsweredOnce) {
  const auto& c = GetParam();
  prewarm();
  beginRun();
  auto state = cache->take();
  const auto* pending = state.as<PrewarmState::pending>();
  ASSERT_TRUE(pending);
  std::vector<std::string> answers;
  const auto waiter = [&](std::optional<SessionResponse> session) {
    answers.push_back(session ? session->id.value_or("?") : "none");
  };
  pending->registrar(waiter);
  if (c.background) enterBackground();
  answer(c.succeeded);

  EXPECT_EQ(answers, std::vector<std::string>{c.answered});
  EXPECT_TRUE(credentialsStored());  // the run's
  EXPECT_EQ(taken(), "none");        // what a run waited for is not kept
  // Subscribing once the fetch has ended, or once the cache is gone, hears none at once.
  pending->registrar(waiter);
  cache.reset();
  pending->registrar(waiter);
  EXPECT_EQ(answers, (std::vector<std::string>{c.answered, "none", "none"}));
}

INSTANTIATE_TEST_SUITE_P(Fetches, PrewarmWaitTest,
                         ::testing::Values(WaitCase{"Succeeded", true, false, "s-1"},
                                           WaitCase{"Failed", false, false, "none"},
                                           WaitCase{"BackgroundWhileWaiting", true, true, "none"}),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

}  // namespace
}  // namespace kiv::testing
