#include <gtest/gtest.h>

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
 protected:
  PrewarmCacheTest() { cache->setIdentity(kAlice); }

  void prewarm() {
    cache->prewarm([this] { return service; });
  }
  // Answers the oldest fetch (from the network's thread, as it were) and
  // lets its completion reach the main thread.
  void answer(bool succeeded = true) {
    ASSERT_FALSE(service->pending.empty());
    auto completion = std::move(service->pending.front());
    service->pending.erase(service->pending.begin());
    if (succeeded) {
      SessionResponse session;
      session.id = "s-1";
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
  // The id of the session a run would be handed ready, or "none"/"pending".
  std::string taken() {
    const auto state = cache->take();
    if (const auto* ready = state.as<PrewarmState::ready>()) return ready->response.id.value_or("?");
    return state.as<PrewarmState::pending>() ? "pending" : "none";
  }
  static bool credentialsStored() {
    return KivKeyChainManager::shared()->readString(kKivSDKService, kMobileTokenKey).has_value();
  }

  std::shared_ptr<HeldService> service = std::make_shared<HeldService>();
  std::shared_ptr<PrewarmCache> cache = PrewarmCache::make();
};

TEST_F(PrewarmCacheTest, FetchesOnceForTheIdentityWithTheCredentialsStored) {
  prewarm();
  prewarm();  // under way
  ASSERT_EQ(service->requests.size(), 1u);
  EXPECT_EQ(service->requests[0].baseURL, backendRootURL(KivEnvironment::dev));
  EXPECT_EQ(service->requests[0].sessionBodyRequest.personId, "alice");
  EXPECT_EQ(KivKeyChainManager::shared()->readString(kKivSDKService, kPersonIdKey), "alice");
  EXPECT_TRUE(cache->hasUsable());

  answer();
  prewarm();  // a fresh session is kept
  EXPECT_EQ(service->requests.size(), 1u);
  clock().advance(PrewarmCache::kFreshnessSeconds);
  prewarm();  // a stale one is fetched again
  EXPECT_EQ(service->requests.size(), 2u);
}

struct AgeCase {
  double age;
  bool handedOver;
};

class PrewarmAgeTest : public PrewarmCacheTest, public ::testing::WithParamInterface<AgeCase> {};

TEST_P(PrewarmAgeTest, KeptSessionIsHandedOverOnlyWhileFresh) {
  prewarm();
  answer();
  clock().advance(GetParam().age);
  EXPECT_EQ(cache->hasUsable(), GetParam().handedOver);
  EXPECT_EQ(taken(), GetParam().handedOver ? "s-1" : "none");
  EXPECT_EQ(taken(), "none");  // handed over once
}

INSTANTIATE_TEST_SUITE_P(Ages, PrewarmAgeTest,
                         ::testing::Values(AgeCase{0.0, true}, AgeCase{89.9, true}, AgeCase{90.0, false},
                                           AgeCase{-1.0, false}));

// What becomes of a prewarm when something happens during its fetch or after
// it: kept for the next run, or dropped with the stored credentials.
enum class Event { nothing, sameIdentity, otherPerson, otherEnvironment, background, runStarts };

struct DropCase {
  const char* name;
  Event event;
  bool duringFetch;  // else once the session is kept
  bool kept;
  bool credentialsStay;
};

class PrewarmDropTest : public PrewarmCacheTest, public ::testing::WithParamInterface<DropCase> {
 protected:
  void happen(Event event) {
    switch (event) {
      case Event::nothing:
        break;
      case Event::sameIdentity:
        cache->setIdentity(kAlice);
        break;
      case Event::otherPerson:
        cache->setIdentity({kAlice.mobileToken, "bob", kAlice.environment});
        break;
      case Event::otherEnvironment:
        cache->setIdentity({kAlice.mobileToken, kAlice.personId, KivEnvironment::beta});
        break;
      case Event::background:
        enterBackground();
        break;
      case Event::runStarts:
        ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
        break;
    }
  }
};

TEST_P(PrewarmDropTest, OnlyTheSameIdentityInTheForegroundKeepsTheSession) {
  const auto& c = GetParam();
  prewarm();
  if (c.duringFetch) happen(c.event);
  answer();
  if (!c.duringFetch) happen(c.event);

  EXPECT_EQ(credentialsStored(), c.credentialsStay);
  EXPECT_EQ(taken(), c.kept ? "s-1" : "none");
}

INSTANTIATE_TEST_SUITE_P(
    Events, PrewarmDropTest,
    ::testing::Values(DropCase{"Nothing", Event::nothing, false, true, true},
                      DropCase{"SameIdentity", Event::sameIdentity, false, true, true},
                      DropCase{"SameIdentityDuringTheFetch", Event::sameIdentity, true, true, true},
                      DropCase{"OtherPerson", Event::otherPerson, false, false, false},
                      DropCase{"OtherPersonDuringTheFetch", Event::otherPerson, true, false, false},
                      DropCase{"OtherEnvironmentDuringTheFetch", Event::otherEnvironment, true, false, false},
                      DropCase{"Background", Event::background, false, false, false},
                      DropCase{"BackgroundDuringTheFetch", Event::background, true, false, false},
                      // The run reads the stored credentials; it deletes them itself.
                      DropCase{"RunStartedDuringTheFetch", Event::runStarts, true, false, true}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(PrewarmCacheTest, FailedFetchKeepsNothing) {
  prewarm();
  answer(/*succeeded=*/false);
  EXPECT_FALSE(credentialsStored());
  EXPECT_EQ(taken(), "none");
}

TEST_F(PrewarmCacheTest, NoFetchStartsDuringARun) {
  ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
  prewarm();
  EXPECT_TRUE(service->requests.empty());
  EXPECT_FALSE(cache->hasUsable());
}

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
  ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
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
