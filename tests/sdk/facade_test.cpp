#include <gtest/gtest.h>

#include <algorithm>

#include "kiv/platform/user_defaults.hpp"
#include "base/current_environment.hpp"
#include "sdk/facade_fixture.hpp"

namespace kiv::testing {
namespace {

const std::string kAlreadyStartedLine = R"("KivFaceLivenessLite SDK has already started.")";
const std::string kPrewarmBeforeSetupLine = R"("KivFaceLivenessLite: prewarm() called before setup().")";
const std::string kSuccess = "success signed-1";

TEST_F(FacadeTest, StartBeforeSetupReportsAtOnceOnlyToADelegate) {
  auto silent = KivFaceLivenessLiteSDK::make();
  silent->startSDK(platform()->ui->makeViewController());
  EXPECT_TRUE(log->empty());

  sdk->prewarm();
  start();
  EXPECT_EQ(*log, CallLog{"error invalidOptionsException setup(mobileToken:personId:) must be called before "
                          "startSDK(viewController:)"});  // before startSDK returned
  EXPECT_EQ(consoleLines(), std::vector<std::string>{kPrewarmBeforeSetupLine});
  EXPECT_FALSE(running());
  loop().runUntilIdle();
  EXPECT_EQ(log->size(), 1u);
  EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(FacadeTest, SecondStartPrintsALineAndLeavesTheRunAlone) {
  setup("person-1", KivEnvironment::dev, /*loading=*/false);
  start();
  const auto model = facade().viewModel;
  start();

  EXPECT_EQ(facade().viewModel, model);
  EXPECT_EQ(std::ranges::count(consoleLines(), kAlreadyStartedLine), 1);
  finishRun();
  EXPECT_EQ(*log, (CallLog{"loading", "loaded", kSuccess, "loaded"}));
  EXPECT_EQ(sessionRequests(), 1u);

  const auto starts = events("start_sdk");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(starts[0]["eventType"], "user_interaction");
  EXPECT_EQ(starts[0]["properties"]["clientId"], "acme");  // the token's issuer
  const Json& params = starts[0]["properties"]["requestParams"];
  for (const auto* key : {"deviceIdentified", "deviceData", "model", "osVersion", "appId", "appName", "appVersion"}) {
    EXPECT_TRUE(params.contains(key)) << key;
  }
  EXPECT_EQ(params["stage"], "dev");
  EXPECT_EQ(params["loading"], false);
  EXPECT_EQ(params["usedPrewarm"], false);
  EXPECT_EQ(params["isJailbroken"], false);
}

struct CameraCase {
  CameraAuthorizationStatus status;
  std::optional<bool> answer;  // to the prompt, when there is one
  std::vector<std::string> permissionEvents;
  bool runs;
};

class CameraTest : public FacadeTest, public ::testing::WithParamInterface<CameraCase> {};

TEST_P(CameraTest, RunWaitsForTheAnswerAndEndsOnARefusal) {
  const auto& c = GetParam();
  camera().setStatus(c.status);
  setup();
  start();
  loop().runUntilIdle();
  ASSERT_TRUE(facade().viewModel);

  if (c.answer) {
    EXPECT_TRUE(running());
    EXPECT_TRUE(log->empty());  // built, not started
    camera().answer(*c.answer);
  }
  finishRun();

  EXPECT_EQ(camera().requestCount(), c.answer ? 1u : 0u);
  EXPECT_EQ(sessionRequests(), c.runs ? 1u : 0u);
  EXPECT_EQ(log->at(log->size() - 2), c.runs ? kSuccess : "error cameraPermission Camera permission denied");
  std::vector<std::string> results;
  for (const auto& body : events("camera_permission")) results.push_back(body["properties"].value("result", ""));
  std::ranges::sort(results);  // detached posts arrive in any order
  auto expected = c.permissionEvents;
  std::ranges::sort(expected);
  EXPECT_EQ(results, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, CameraTest,
    ::testing::Values(CameraCase{CameraAuthorizationStatus::notDetermined, true, {"requested", "granted"}, true},
                      CameraCase{CameraAuthorizationStatus::notDetermined, false, {"requested", "denied"}, false},
                      CameraCase{CameraAuthorizationStatus::authorized, std::nullopt, {"granted"}, true},
                      CameraCase{CameraAuthorizationStatus::denied, std::nullopt, {"denied"}, false},
                      CameraCase{CameraAuthorizationStatus::restricted, std::nullopt, {"denied"}, false}));

// One analytics session spans setup, prewarm and the first start; a setup
// during the run leaves it; the next start after the run, or another
// environment, opens a new one.
TEST_F(FacadeTest, AnalyticsSessionsFollowSetupsAndStarts) {
  setup();
  sdk->prewarm();
  settlePrewarm();
  setup();
  setup("person-1", KivEnvironment::dev, /*loading=*/false);
  camera().setStatus(CameraAuthorizationStatus::notDetermined);
  start();
  loop().runUntilIdle();
  const auto first = facade().analyticsSessionId;
  setup("person-2");  // during the run
  EXPECT_EQ(facade().analyticsSessionId, first);
  EXPECT_EQ(currentEnvironment(), KivEnvironment::dev);
  camera().answer(true);
  finishRun();

  setup("person-2");  // the same values, but the session was used
  const auto second = facade().analyticsSessionId;
  start();
  finishRun();
  setup("person-2", KivEnvironment::beta);
  EXPECT_EQ(currentEnvironment(), KivEnvironment::beta);
  const auto third = facade().analyticsSessionId;
  EXPECT_EQ(KivBFFAnalytics::shared()->sessionId(), third);

  ASSERT_TRUE(first && second && third);
  EXPECT_NE(*first, *second);
  EXPECT_NE(*second, *third);
  std::vector<std::string> starts;
  std::vector<bool> firstOpens;
  for (const auto& body : events("start_sdk")) {
    starts.push_back(sessionIdOf(body));
    firstOpens.push_back(body["properties"]["requestParams"].value("firstOpen", false));
  }
  EXPECT_EQ(starts, (std::vector<std::string>{*first, *second}));
  EXPECT_EQ(firstOpens, (std::vector<bool>{true, false}));
  EXPECT_EQ(platform()->defaults->string("install_guid"), first);
  std::vector<std::string> fetches;  // the prewarm's and each run's, in no set order
  for (const auto& body : events("api_response")) {
    if (body["properties"].value("apiEndpoint", "").find("sessions") != std::string::npos) {
      fetches.push_back(sessionIdOf(body));
    }
  }
  EXPECT_EQ(std::ranges::count(fetches, *first), 2);
  EXPECT_EQ(std::ranges::count(fetches, *second), 1);
  std::vector<std::string> permissions;  // requested and granted, then granted
  for (const auto& body : events("camera_permission")) permissions.push_back(sessionIdOf(body));
  EXPECT_EQ(std::ranges::count(permissions, *first), 2);
  EXPECT_EQ(std::ranges::count(permissions, *second), 1);
}

struct ReleaseCase {
  const char* name;
  std::optional<CameraAuthorizationStatus> camera;  // a prompt is open when released
  const char* script;                               // the capture when it runs
};

class ReleaseTest : public FacadeTest, public ::testing::WithParamInterface<ReleaseCase> {};

TEST_P(ReleaseTest, HostReleasingFacadeAndDelegateMidRunEndsTheRunSilently) {
  const auto& c = GetParam();
  if (c.camera) camera().setStatus(*c.camera);
  vendor().setScript(CaptureScript::parse(c.script).value());
  setup();
  start();
  if (!c.camera) {
    ASSERT_TRUE(loop().runUntil([] { return vendor().launches().size() == 1; }));
  }
  const auto callsBefore = log->size();

  sdk.reset();
  delegate.reset();
  if (c.camera) camera().answer(true);
  loop().advance(10.0);
  testPlatform().pool->waitIdle();
  loop().runUntilIdle();

  EXPECT_EQ(log->size(), callsBefore);
  EXPECT_FALSE(running());
  EXPECT_FALSE(storedToken());
}

INSTANTIATE_TEST_SUITE_P(Moments, ReleaseTest,
                         ::testing::Values(ReleaseCase{"AtThePrompt", CameraAuthorizationStatus::notDetermined,
                                                       "connected; success"},
                                           ReleaseCase{"DuringCapture", std::nullopt, "connected; wait 5; success"}),
                         CaseName());

}  // namespace
}  // namespace kiv::testing
