#include <gtest/gtest.h>

#include <thread>

#include "kiv/platform/notification_center.hpp"
#include "sdk/facade_fixture.hpp"

namespace kiv::testing {
namespace {

const std::string kSuccess = "success signed-1";

class PrewarmTest : public FacadeTest {
 protected:
  // Starts a prewarm whose answer the server holds until released.
  void prewarmHeld() {
    server.holdAnswers();
    sdk->prewarm();
    // Nothing else is posted before the session request is answered.
    ASSERT_TRUE(server.waitForRequests(1));
    ASSERT_EQ(sessionRequests(), 1u);
  }
  void enterBackground() {
    platform()->notifications->post(kApplicationDidEnterBackgroundNotification);
    loop().runUntilIdle();
  }
  bool usedPrewarm() {
    const auto bodies = events("start_sdk");
    return !bodies.empty() && bodies.back()["properties"]["requestParams"].value("usedPrewarm", false);
  }
};

TEST_F(PrewarmTest, QuickPrewarmsFromAnyThreadSendOneRequest) {
  setup();
  sdk->prewarm();
  std::thread([&] { sdk->prewarm(); }).join();  // queued to the main loop
  sdk->prewarm();
  settlePrewarm();
  loop().runUntilIdle();
  testPlatform().pool->waitIdle();

  EXPECT_EQ(sessionRequests(), 1u);
  ASSERT_TRUE(facade().prewarmed);
  EXPECT_EQ(facade().prewarmed->response.id, "s-1");
  EXPECT_EQ(storedToken(), kToken);
}

struct AgeCase {
  double age;
  bool handedOver;
};

class PrewarmAgeTest : public PrewarmTest, public ::testing::WithParamInterface<AgeCase> {};

TEST_P(PrewarmAgeTest, FreshSessionIsHandedOverAndAStaleOneRefetched) {
  const auto& c = GetParam();
  setup();
  sdk->prewarm();
  settlePrewarm();
  clock().advance(c.age);
  start();
  finishRun();

  EXPECT_EQ(sessionRequests(), c.handedOver ? 1u : 2u);
  EXPECT_EQ(*log, (c.handedOver ? CallLog{kSuccess, "loaded"} : CallLog{"loading", "loaded", kSuccess, "loaded"}));
  EXPECT_EQ(usedPrewarm(), c.handedOver);
  EXPECT_FALSE(facade().prewarmed);
}

INSTANTIATE_TEST_SUITE_P(Ages, PrewarmAgeTest,
                         ::testing::Values(AgeCase{0.0, true}, AgeCase{89.9, true}, AgeCase{90.0, false},
                                           AgeCase{-1.0, false}));

TEST_F(PrewarmTest, StartDuringTheFetchWaitsForItAndDoesNotCacheIt) {
  setup();
  prewarmHeld();
  start();
  loop().runUntilIdle();
  EXPECT_TRUE(facade().prewarmWaiter);

  server.releaseAnswers();
  finishRun();
  EXPECT_EQ(sessionRequests(), 1u);
  EXPECT_EQ(*log, (CallLog{"loading", "loaded", kSuccess, "loaded"}));
  EXPECT_TRUE(usedPrewarm());
  EXPECT_FALSE(facade().prewarmed);
}

TEST_F(PrewarmTest, BackgroundDuringTheFetchDropsItAndDeletesTheCredentials) {
  setup();
  prewarmHeld();
  enterBackground();
  EXPECT_TRUE(facade().prewarmAbandoned);
  EXPECT_FALSE(storedToken());

  server.releaseAnswers();
  settlePrewarm();
  loop().runUntilIdle();
  EXPECT_FALSE(facade().prewarmed);
  EXPECT_FALSE(facade().backgroundObserver);
}

TEST_F(PrewarmTest, BackgroundDuringTheFetchAnswersAWaitingRunWithNone) {
  setup();
  prewarmHeld();
  start();
  loop().runUntilIdle();
  enterBackground();
  EXPECT_EQ(storedToken(), kToken);  // the run uses them

  server.releaseAnswers();
  finishRun();
  EXPECT_EQ(sessionRequests(), 2u);  // the run fetched for itself
  EXPECT_EQ(*log, (CallLog{"loading", "loaded", kSuccess, "loaded"}));
  EXPECT_FALSE(facade().prewarmed);
}

TEST_F(PrewarmTest, BackgroundDropsACachedSession) {
  setup();
  sdk->prewarm();
  settlePrewarm();
  enterBackground();
  EXPECT_FALSE(facade().prewarmed);
  EXPECT_FALSE(storedToken());
}

struct SetupCase {
  const char* name;
  std::string personId;
  KivEnvironment environment;
  bool kept;
};

class SetupAfterPrewarmTest : public PrewarmTest, public ::testing::WithParamInterface<SetupCase> {};

TEST_P(SetupAfterPrewarmTest, OtherCredentialsDiscardTheSessionAndTheStoredValues) {
  const auto& c = GetParam();
  setup();
  sdk->prewarm();
  settlePrewarm();
  setup(c.personId, c.environment);

  EXPECT_EQ(facade().prewarmed.has_value(), c.kept);
  EXPECT_EQ(storedToken().has_value(), c.kept);
  EXPECT_EQ(facade().backgroundObserver.has_value(), c.kept);
}

TEST_P(SetupAfterPrewarmTest, OtherCredentialsDuringTheFetchDropItsResponse) {
  const auto& c = GetParam();
  setup();
  prewarmHeld();
  setup(c.personId, c.environment);
  server.releaseAnswers();
  settlePrewarm();

  EXPECT_EQ(facade().prewarmed.has_value(), c.kept);
}

INSTANTIATE_TEST_SUITE_P(Setups, SetupAfterPrewarmTest,
                         ::testing::Values(SetupCase{"Identical", "person-1", KivEnvironment::dev, true},
                                           SetupCase{"OtherPerson", "person-2", KivEnvironment::dev, false},
                                           SetupCase{"OtherEnvironment", "person-1", KivEnvironment::beta, false}),
                         CaseName());

TEST_F(PrewarmTest, FetchCompletingDuringAnotherRunIsNotCached) {
  setup();
  prewarmHeld();
  // A run of another facade holds the process-wide guard.
  auto other = KivFaceLivenessLiteSDK::make();
  other->setup(kToken, "person-9", std::nullopt, nullptr, std::nullopt, KivEnvironment::dev, true);
  camera().setStatus(CameraAuthorizationStatus::notDetermined);
  other->startSDK(platform()->ui->makeViewController());

  server.releaseAnswers();
  settlePrewarm();
  EXPECT_FALSE(facade().prewarmed);
  EXPECT_TRUE(storedToken());  // the other run's
  sdk->prewarm();              // and none starts during a run
  loop().runUntilIdle();
  EXPECT_FALSE(facade().inFlightPrewarm);
  EXPECT_EQ(sessionRequests(), 1u);
}

}  // namespace
}  // namespace kiv::testing
