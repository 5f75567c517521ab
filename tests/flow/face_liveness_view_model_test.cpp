#include "flow/face_liveness_view_model.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <set>
#include <thread>

#include "base/current_environment.hpp"
#include "base/state_manager.hpp"
#include "flow/default_iproov_launcher.hpp"
#include "kiv/backend.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "support/analytics_configuration.hpp"
#include "support/mobile_token.hpp"
#include "support/recording_delegate.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordingDelegate;
using testing::RecordingHttpServer;
using Calls = std::vector<std::string>;

constexpr const char* kSessionPath = "/bff/sessions";
constexpr const char* kTrackPath = "/bff/track-analytics";
constexpr const char* kSession =
    R"({"id":"session-1","supplier":{"type":"iproov","token":"vendor-token","settings":{"filter":"natural"}},)"
    R"("livenessAttemptId":"attempt-1","signedResponse":"signed-1"})";

const std::string kToken = testing::mobileToken(
    R"({"iss":"acme","extraSettings":{"liveness":{"supplier":{"name":"iproov","product":"liveness",)"
    R"("serviceLocation":"eu.capture.example"}}}})");

class ViewModelTest : public testing::PlatformTest {
 protected:
  ViewModelTest() {
    EXPECT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url()));
    setCurrentEnvironment(KivEnvironment::dev);
    server.setAnswer(kSessionPath, Answer::json(200, kSession));
    KivBFFAnalytics::configure(testing::analyticsConfiguration("analytics-1"));
    host = platform()->ui->makeViewController();
  }
  ~ViewModelTest() override {
    // While the server still answers: the attempt's posts end on the HTTP
    // session's thread.
    testPlatform().pool->waitIdle();
    if (auto analytics = KivBFFAnalytics::shared()) analytics->waitForPendingPosts();
    resetBackendRootURL(KivEnvironment::dev);
  }

  void play(std::string_view script) { fakeCapture().setScript(CaptureScript::parse(script).value()); }

  std::shared_ptr<KivFaceLivenessLiteViewModel> makeModel(bool loading = false) {
    auto analytics = KivBFFAnalytics::shared();
    return KivFaceLivenessLiteViewModel::make(
        {.service = KivService::create(KivService::makeURLSession(), std::string(kMobileTokenKey), analytics),
         .viewController = host,
         .personId = "person-1",
         .loading = loading,
         .analytics = analytics,
         .launcher = std::make_unique<DefaultIProovLauncher>(),
         .delegate = delegate});
  }

  // What the facade does before it hands over: claims the run, arms crash
  // capture, stores the credentials.
  void begin(bool loading = false) {
    ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
    // Crash capture is armed for the first run of a process only: once
    // uninstalled the shared handler stays empty.
    if (auto crashHandler = KivCrashHandler::shared()) crashHandler->install(std::string(kKivSDKService), true);
    model = makeModel(loading);
    ASSERT_TRUE(model->storeCredentials(kToken, "person-1"));
  }

  // Plays the attempt to its delegate call, then past the longest dismissal
  // hold, moving the fake clock only while nothing else can happen.
  Calls run(PrewarmState state = PrewarmState::none{}) {
    begin();
    model->start(std::move(state));
    finish();
    return delegate->calls();
  }
  void finish() {
    while (!delegate->ended()) {
      ASSERT_TRUE(loop().runUntil([&] { return delegate->ended() || loop().pendingDelayedCount() > 0; }));
      if (!delegate->ended()) loop().advance(0.25);
    }
    loop().advance(KivLiteIProovPresenter::kStandardMaxHold);
  }

  // Everything an ended attempt must leave behind.
  void expectTornDown() {
    for (const auto& [key, value] : fakeStore().items()) {
      EXPECT_NE(key.second, kMobileTokenKey);
      EXPECT_NE(key.second, kPersonIdKey);
    }
    EXPECT_FALSE(KivSDKStateManager::shared().isRunning());
    EXPECT_EQ(KivCrashHandler::shared(), nullptr);
    if (model->presenter()) {
      EXPECT_TRUE(model->presenter()->resultWasDelivered());
    }
    EXPECT_FALSE(host->presentedViewController());
  }

  // The analytics events of one attempt (the posts may land in any order),
  // by their "result": the properties with the parameters the client did
  // not lift (requestParams) merged in.
  std::map<std::string, Json> tracked(std::size_t count) {
    while (server.requests(kTrackPath).size() < count) {
      if (!server.waitForRequests(server.requestCount() + 1)) break;
    }
    std::map<std::string, Json> out;
    for (const auto& request : server.requests(kTrackPath)) {
      auto body = request.bodyJson().value_or(Json());
      Json flat = body["properties"];
      const Json params = flat["requestParams"];
      for (const auto& [key, value] : params.items()) flat[key] = value;
      const auto name = body.value("event", "") + " " + flat.value("result", "");
      out[name] = std::move(flat);
    }
    return out;
  }

  RecordingHttpServer server;
  std::shared_ptr<ViewController> host;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<KivFaceLivenessLiteViewModel> model;
};

TEST_F(ViewModelTest, SuccessfulAttemptGoesOnTheWireAndTearsDown) {
  play("connected; wait 1; success");
  EXPECT_EQ(run(), (Calls{"loading", "loaded", "success signed-1", "loaded"}));
  expectTornDown();

  ASSERT_TRUE(server.waitForRequests("/bff/transactions/attempt-1/async", 1));
  EXPECT_EQ(server.requests("/bff/transactions/attempt-1/async").at(0).body, R"({"sessionId":"session-1","data":{}})");
  EXPECT_EQ(server.requests(kSessionPath).at(0).header("Authorization"), kToken);  // the stored credentials
  const auto launches = fakeCapture().launches();
  ASSERT_EQ(launches.size(), 1u);
  EXPECT_EQ(launches[0].streamingURL, "wss://eu.capture.example/ws");
  EXPECT_EQ(launches[0].token, "vendor-token");

  auto events = tracked(5);
  EXPECT_EQ(events["provider_event connected"]["provider"], "iproov");
  EXPECT_EQ(events["provider_event success"]["provider"], "iproov");
  const Json& finish = events["sdk_result finish_with_success"];
  EXPECT_EQ(finish["signedResponse"], "signed-1");
  EXPECT_EQ(finish["provider"], "iproov");
}

TEST_F(ViewModelTest, VendorFailureCarriesTheSessionsSignedResponse) {
  play(R"(connected; failure eyes_closed "Eyes were closed" too_dark)");
  EXPECT_EQ(run(), (Calls{"loading", "loaded", "failure eyes_closed Eyes were closed signed-1", "loaded"}));
  expectTornDown();
  ASSERT_TRUE(server.waitForRequests("/bff/transactions/attempt-1/async", 1));

  auto events = tracked(5);
  const Json& failure = events["provider_event failure"];
  EXPECT_EQ(failure["reason"], "eyes_closed");
  EXPECT_EQ(failure["description"], "FailureResult(reasons: [eyes_closed, too_dark])");
  const Json& finish = events["sdk_result finish_with_failure"];
  EXPECT_EQ(finish["errorType"], "eyes_closed");
  EXPECT_EQ(finish["description"], "Eyes were closed");
  EXPECT_EQ(finish["signedResponse"], "signed-1");
}

struct OutcomeCase {
  const char* name;
  int status;
  const char* body;
  const char* script;
  const char* outcome;  // the one terminal call
};

class AttemptOutcomes : public ViewModelTest, public ::testing::WithParamInterface<OutcomeCase> {};

TEST_P(AttemptOutcomes, EndInOneDelegateCall) {
  server.setAnswer(kSessionPath, Answer::json(GetParam().status, GetParam().body));
  play(GetParam().script);
  begin();
  model->start(PrewarmState::none{});
  std::atomic<int> held = 0;  // the start's events, as the facade hands them over
  model->postOnceLaunched({[&held] { ++held; }});
  finish();
  EXPECT_EQ(delegate->calls(), (Calls{"loading", "loaded", GetParam().outcome, "loaded"}));
  expectTornDown();
  testPlatform().pool->waitIdle();
  EXPECT_EQ(held, 1);  // posted once, whether or not the capture launched
}

constexpr const char* kNoSupplier = R"({"livenessAttemptId":"a","signedResponse":"s"})";

INSTANTIATE_TEST_SUITE_P(
    , AttemptOutcomes,
    ::testing::Values(
        OutcomeCase{"Status422WithoutMessage", 422, "", "success",
                    "error tokenException This client is not eligible for the asynchronous liveness flow."},
        OutcomeCase{"Status422WithMessage", 422, R"({"message":"Client blocked"})", "success",
                    "error tokenException Client blocked"},
        OutcomeCase{"Status500", 500, R"({"error":{"message":"Boom"}})", "success",
                    "error serverException Server Error"},
        OutcomeCase{"UndecodableSession", 200, R"({"remainingAttempts":"2"})", "success",
                    R"(error serverException {"remainingAttempts":"2"})"},
        OutcomeCase{
            "UpperCaseSupplier", 200,
            R"({"id":"s","supplier":{"type":"IPROOV","token":""},"livenessAttemptId":"a","signedResponse":"s"})",
            "success", "success s"},
        OutcomeCase{"OtherSupplier", 200,
                    R"({"supplier":{"type":"Onfido","token":"t"},"livenessAttemptId":"a","signedResponse":"s"})",
                    "success", "error serverException Unsupported supplier: Onfido"},
        OutcomeCase{"MissingSupplier", 200, kNoSupplier, "success",
                    "error serverException Unsupported supplier: unknown"},
        OutcomeCase{"MissingToken", 200,
                    R"({"supplier":{"type":"iproov"},"livenessAttemptId":"a","signedResponse":"s"})", "success",
                    "error tokenException Missing token from session"},
        OutcomeCase{"BlankAttemptId", 200,
                    R"({"supplier":{"type":"iproov","token":"t"},"livenessAttemptId":" \n ","signedResponse":"s"})",
                    "success", "error invalidResponseException the session did not return a livenessAttemptId"},
        OutcomeCase{"MissingSignedResponse", 200,
                    R"({"supplier":{"type":"iproov","token":"t"},"livenessAttemptId":"a"})", "success",
                    "error tokenException the session did not return a signedResponse"},
        // A misbehaving vendor changes nothing once the outcome is decided.
        OutcomeCase{"LateErrorAfterSuccess", 200, kSession, "connected; success; then error network",
                    "success signed-1"},
        OutcomeCase{"StatusAfterCancel", 200, kSession, "failure too_dark; then force canceled",
                    "failure too_dark Too dark signed-1"},
        OutcomeCase{"ConcludedInsideLaunch", 200, kSession, "sync error captureAlreadyActive",
                    "error captureAlreadyActiveException IproovError"},
        // The screen asked to go before the result: held until it is delivered.
        OutcomeCase{"DismissedBeforeTheResult", 200, kSession, "connected; dismiss; wait 2; success",
                    "success signed-1"},
        OutcomeCase{"NeverDismissed", 200, kSession, "nodismiss; connected; success", "success signed-1"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(ViewModelTest, IntegrityViolationsEndTheAttempt) {
  fakeIntegrity().setViolationAtStart("debugger attached");
  EXPECT_EQ(run(), (Calls{"error securityException Security violation: debugger attached", "loaded"}));
  EXPECT_TRUE(server.requests(kSessionPath).empty());
  expectTornDown();

  fakeIntegrity().setViolationAtStart(std::nullopt);
  delegate = std::make_shared<RecordingDelegate>();
  play("connected; wait 5; success");
  begin();
  model->start(PrewarmState::none{});
  ASSERT_TRUE(loop().runUntil([&] { return !fakeCapture().launches().empty() && host->presentedViewController(); }));
  std::thread([&] { fakeIntegrity().reportViolation("frida-agent mapped"); }).join();  // as from the monitor's queue
  finish();
  EXPECT_EQ(delegate->calls(),
            (Calls{"loading", "loaded", "error securityException Mid-session security violation: frida-agent mapped",
                   "loaded"}));
  EXPECT_EQ(fakeIntegrity().runningMonitors(), 0u);
  expectTornDown();
}

TEST_F(ViewModelTest, KeyChainFailureEndsTheAttemptBeforeItStarts) {
  ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
  model = makeModel();
  fakeStore().failNextAdd(-34018);
  EXPECT_FALSE(model->storeCredentials(kToken, "person-1"));
  EXPECT_EQ(delegate->calls(), (Calls{"error unsupportedDevice KeyChain error", "loaded"}));
  EXPECT_FALSE(KivSDKStateManager::shared().isRunning());
}

TEST_F(ViewModelTest, LoadingViewCoversTheHostOnlyWhenAsked) {
  play("success");
  begin(/*loading=*/true);
  model->start(PrewarmState::none{});
  ASSERT_EQ(model->loadingView()->view()->superview(), host->view());
  EXPECT_FALSE(model->loadingView()->view()->isHidden());
  finish();
  EXPECT_TRUE(model->loadingView()->view()->isHidden());
}

// Whole attempts on the manual pool: the vendor's thread, the service's
// dispatch and the main queue all run from the loop, and the clock moves
// only once the session has arrived, so one script gives one trace.
TEST(DeterministicAttempt, OneScriptGivesOneTrace) {
  RecordingHttpServer server;
  server.setAnswer(kSessionPath, Answer::json(200, kSession));
  std::set<std::string> traces;
  // KIV_PROPERTY_COUNT, as for the attempt schedules, scales the runs down where each costs more (under emulation).
  const char* count = std::getenv("KIV_PROPERTY_COUNT");
  const int runs = count ? std::clamp(std::atoi(count), 2, 1000) : 1000;
  for (int run = 0; run < runs; ++run) {
    testing::TestPlatform test(testing::TestPlatform::Pool::manual);
    ASSERT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url()));
    setCurrentEnvironment(KivEnvironment::dev);
    test.capture->setScript(CaptureScript::parse("deliver vendor; connected; wait 1; failure eyes_closed").value());
    auto& loop = *test.loop;
    const auto start = test.clock->now();
    std::string trace;
    auto note = [&](const std::string& event) {
      trace += std::to_string(secondsBetween(start, test.clock->now())) + " " + event + "; ";
    };
    auto delegate = std::make_shared<RecordingDelegate>();
    delegate->onCall = note;
    loop.postAfter(1.0, [&] { note("unrelated"); });

    ASSERT_TRUE(KivSDKStateManager::shared().beginRun());
    auto session = KivService::makeURLSession();
    auto model = KivFaceLivenessLiteViewModel::make(
        {.service = KivService::create(session, std::string(kMobileTokenKey), nullptr),
         .viewController = platform()->ui->makeViewController(),
         .personId = "person-1",
         .launcher = std::make_unique<DefaultIProovLauncher>(),
         .delegate = delegate});
    ASSERT_TRUE(model->storeCredentials(kToken, "person-1"));
    model->start(PrewarmState::none{});
    ASSERT_TRUE(loop.runUntil([&] { return delegate->calls().size() >= 2; }));  // the session arrived
    while (!delegate->ended()) loop.advance(0.25);
    loop.advance(KivLiteIProovPresenter::kStandardMaxHold);
    traces.insert(trace);
    // The transaction is fire-and-forget: let its completion run before the
    // next platform, and never past the end of the process.
    ASSERT_TRUE(server.waitForRequests(2 * (run + 1)));
    session->invalidateAndCancel();
    resetBackendRootURL(KivEnvironment::dev);
  }
  EXPECT_EQ(traces.size(), 1u) << *traces.begin();
  EXPECT_EQ(*traces.begin(),
            "0.000000 loading; 0.000000 loaded; 1.000000 unrelated; 1.000000 failure eyes_closed Eyes closed signed-1; "
            "1.000000 loaded; ");
}

}  // namespace
}  // namespace kiv
