// The facade as a host and the backend see it: a facade over the manual loop,
// with the backend (sessions, transactions, analytics) played by a recording
// server, the simulated capture vendor, and a recording delegate whose log
// outlives it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/current_environment.hpp"
#include "base/state_manager.hpp"
#include "kiv/backend.hpp"
#include "kiv/face_liveness_lite_sdk.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "kiv/testing/simulated_capture_vendor.hpp"
#include "service/key_chain_manager.hpp"
#include "support/recording_delegate.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv::testing {
namespace {

// A token whose payload names the issuer "acme".
const std::string kToken = "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9.eyJpc3MiOiJhY21lIn0.sig";
const std::string kSessionJson =
    R"({"id":"s-1","livenessAttemptId":"a-1","signedResponse":"signed-1","supplier":{"type":"iproov","token":"t-1"}})";
const std::string kSuccess = "success signed-1";

using CallLog = std::vector<std::string>;

class FacadeTest : public PlatformTest {
 protected:
  FacadeTest() {
    EXPECT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url()));
    EXPECT_TRUE(setBackendRootURL(KivEnvironment::beta, server.url()));
    server.setAnswer("/bff/sessions", Answer::json(200, kSessionJson));
    sdk->setDelegate(delegate);
  }
  ~FacadeTest() override {
    sdk.reset();
    resetBackendRootURL(KivEnvironment::dev);
    resetBackendRootURL(KivEnvironment::beta);
  }

  void setup(const std::string& personId = "person-1", KivEnvironment environment = KivEnvironment::dev,
             bool loading = true) {
    sdk->setup(kToken, personId, std::nullopt, nullptr, std::nullopt, environment, loading);
  }
  void start() { sdk->startSDK(platform()->ui->makeViewController()); }

  static bool running() { return KivSDKStateManager::shared().isRunning(); }
  std::size_t sessionRequests() const { return server.requests("/bff/sessions").size(); }

  // Runs the loop until the run has ended.
  void finishRun() {
    ASSERT_TRUE(loop().runUntil([&] { return !running(); }));
  }
  // The bodies of the analytics events named `event` posted so far, in
  // arrival order; their bodies are built on the pool and they end on the
  // HTTP session's thread.
  std::vector<Json> events(std::string_view event) {
    testPlatform().pool->waitIdle();
    if (auto analytics = KivBFFAnalytics::shared()) analytics->waitForPendingPosts();
    std::vector<Json> out;
    for (const auto& request : server.requests("/bff/track-analytics")) {
      auto body = request.bodyJson().value_or(Json::object());
      if (body.value("event", "") == event) out.push_back(std::move(body));
    }
    return out;
  }
  std::vector<std::string> sessionsOf(std::string_view event) {
    std::vector<std::string> ids;
    for (const auto& body : events(event)) {
      // A run's transaction may still be on its way: only session fetches count.
      if (event != "api_response" || body["properties"].value("apiEndpoint", "").contains("sessions")) {
        ids.push_back(body["properties"].value("sessionId", ""));
      }
    }
    return ids;
  }

  RecordingHttpServer server;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<const CallLog> log = delegate->log();
  std::shared_ptr<KivFaceLivenessLiteSDK> sdk = KivFaceLivenessLiteSDK::make();
};

TEST_F(FacadeTest, StartBeforeSetupReportsAtOnceOnlyToADelegate) {
  auto silent = KivFaceLivenessLiteSDK::make();
  silent->startSDK(platform()->ui->makeViewController());
  EXPECT_TRUE(log->empty());

  sdk->prewarm();
  start();
  EXPECT_EQ(*log, CallLog{"error invalidOptionsException setup(mobileToken:personId:) must be called before "
                          "startSDK(viewController:)"});  // before startSDK returned
  EXPECT_EQ(consoleLines(), CallLog{R"("KivFaceLivenessLite: prewarm() called before setup().")"});
  EXPECT_FALSE(running());
  loop().runUntilIdle();
  EXPECT_EQ(log->size(), 1u);
  EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(FacadeTest, SecondStartPrintsALineAndLeavesTheRunAlone) {
  setup("person-1", KivEnvironment::dev, /*loading=*/false);
  start();
  start();

  EXPECT_EQ(std::ranges::count(consoleLines(), R"("KivFaceLivenessLite SDK has already started.")"), 1);
  finishRun();
  EXPECT_EQ(*log, (CallLog{"loading", "loaded", kSuccess, "loaded"}));
  EXPECT_EQ(sessionRequests(), 1u);
  EXPECT_EQ(fakeCapture().launches().size(), 1u);

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

TEST_F(FacadeTest, ARunKeepsTheBackendOfTheEnvironmentItStartedWith) {
  RecordingHttpServer beta;
  ASSERT_TRUE(setBackendRootURL(KivEnvironment::beta, beta.url()));
  // No status before the pause, so that the pause is armed on the main loop
  // alone, before the clock moves.
  fakeCapture().setScript(CaptureScript::parse("wait 1; success").value());
  setup();
  start();
  ASSERT_TRUE(loop().runUntil([&] { return fakeCapture().launches().size() == 1; }));
  KivFaceLivenessLiteSDK::make()->setup(kToken, "person-1", std::nullopt, nullptr, std::nullopt, KivEnvironment::beta,
                                        false);
  EXPECT_EQ(currentEnvironment(), KivEnvironment::beta);
  loop().advance(1);
  finishRun();
  // The attempt's report is fire and forget: it may arrive after the run.
  EXPECT_TRUE(server.waitForRequests("/bff/transactions/a-1/async", 1));
  EXPECT_EQ(beta.requestCount(), 0u);
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
  fakeCamera().setStatus(c.status);
  setup();
  start();
  loop().runUntilIdle();
  if (c.answer) {
    EXPECT_TRUE(running());
    EXPECT_TRUE(log->empty());  // built, not started
    fakeCamera().answer(*c.answer);
  }
  finishRun();

  EXPECT_EQ(fakeCamera().requestCount(), c.answer ? 1u : 0u);
  EXPECT_EQ(sessionRequests(), c.runs ? 1u : 0u);
  EXPECT_EQ(log->at(log->size() - 2), c.runs ? kSuccess : "error cameraPermission Camera permission denied");
  std::vector<std::string> results;  // detached posts arrive in any order
  for (const auto& body : events("camera_permission")) results.push_back(body["properties"].value("result", ""));
  EXPECT_THAT(results, ::testing::UnorderedElementsAreArray(c.permissionEvents));
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
  setup();
  setup("person-1", KivEnvironment::dev, /*loading=*/false);
  fakeCamera().setStatus(CameraAuthorizationStatus::notDetermined);
  start();
  loop().runUntilIdle();
  setup("person-2");  // during the run: the prewarm is no longer the run's
  EXPECT_EQ(currentEnvironment(), KivEnvironment::dev);
  fakeCamera().answer(true);
  finishRun();
  setup("person-2");  // the same values, but the session was used
  start();
  finishRun();
  // The run posts its start's events as it ends; the next setup replaces
  // the client, and events() waits only for the current client's posts.
  ASSERT_EQ(events("start_sdk").size(), 2u);
  setup("person-2", KivEnvironment::beta);
  EXPECT_EQ(currentEnvironment(), KivEnvironment::beta);

  const auto starts = sessionsOf("start_sdk");
  ASSERT_EQ(starts.size(), 2u);
  const auto &first = starts[0], &second = starts[1];
  const auto third = KivBFFAnalytics::shared()->sessionId();
  EXPECT_TRUE(first != second && second != third && first != third);
  std::vector<bool> firstOpens;
  for (const auto& body : events("start_sdk"))
    firstOpens.push_back(body["properties"]["requestParams"]["firstOpen"].get<bool>());
  EXPECT_EQ(firstOpens, (std::vector<bool>{true, false}));
  EXPECT_EQ(platform()->defaults->string("install_guid"), first);
  // The prewarm's fetch and the first run's own; requested and granted, then granted.
  EXPECT_THAT(sessionsOf("api_response"), ::testing::UnorderedElementsAre(first, first, second));
  EXPECT_THAT(sessionsOf("camera_permission"), ::testing::UnorderedElementsAre(first, first, second));
}

// A prewarm (asked for from any thread, as often as the host likes) fetches
// once; a run that starts during the fetch waits for it, unless the host set
// up other credentials meanwhile.
struct PrewarmCase {
  const char* name;
  std::string personAtStart;
  std::size_t sessionRequests;
  bool usedPrewarm;
};

class PrewarmTest : public FacadeTest, public ::testing::WithParamInterface<PrewarmCase> {};

TEST_P(PrewarmTest, RunStartingDuringTheFetchWaitsForItsSession) {
  const auto& c = GetParam();
  setup();
  server.holdAnswers();
  sdk->prewarm();
  std::thread([&] { sdk->prewarm(); }).join();  // queued to the main loop
  sdk->prewarm();
  loop().runUntilIdle();
  ASSERT_TRUE(server.waitForRequests(1));
  setup(c.personAtStart);
  start();
  loop().runUntilIdle();
  server.releaseAnswers();
  finishRun();

  EXPECT_EQ(sessionRequests(), c.sessionRequests);
  EXPECT_EQ(*log, (CallLog{"loading", "loaded", kSuccess, "loaded"}));
  const auto starts = events("start_sdk");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(starts[0]["properties"]["requestParams"]["usedPrewarm"], c.usedPrewarm);
}

INSTANTIATE_TEST_SUITE_P(Setups, PrewarmTest,
                         ::testing::Values(PrewarmCase{"SameCredentials", "person-1", 1, true},
                                           PrewarmCase{"OtherPerson", "person-2", 2, false}),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

struct ReleaseCase {
  const char* name;
  std::optional<CameraAuthorizationStatus> camera;  // a prompt is open when released
  const char* script;                               // the capture when it runs
};

class ReleaseTest : public FacadeTest, public ::testing::WithParamInterface<ReleaseCase> {};

TEST_P(ReleaseTest, HostReleasingFacadeAndDelegateMidRunEndsTheRunSilently) {
  const auto& c = GetParam();
  if (c.camera) fakeCamera().setStatus(*c.camera);
  fakeCapture().setScript(CaptureScript::parse(c.script).value());
  setup();
  start();
  if (!c.camera) {
    ASSERT_TRUE(loop().runUntil([&] { return fakeCapture().launches().size() == 1; }));
  }
  const auto callsBefore = log->size();

  sdk.reset();
  delegate.reset();
  if (c.camera) fakeCamera().answer(true);
  loop().advance(10.0);
  testPlatform().pool->waitIdle();
  loop().runUntilIdle();

  EXPECT_EQ(log->size(), callsBefore);
  EXPECT_FALSE(running());
  EXPECT_FALSE(KivKeyChainManager::shared()->readString(kKivSDKService, kMobileTokenKey));
}

INSTANTIATE_TEST_SUITE_P(Moments, ReleaseTest,
                         ::testing::Values(ReleaseCase{"AtThePrompt", CameraAuthorizationStatus::notDetermined,
                                                       "connected; success"},
                                           ReleaseCase{"DuringCapture", std::nullopt, "connected; wait 5; success"}),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

}  // namespace
}  // namespace kiv::testing
