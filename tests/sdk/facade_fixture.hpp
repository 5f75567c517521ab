// A facade over the manual loop, with the backend (sessions, transactions,
// analytics) played by a recording server, the simulated capture vendor, and
// a recording delegate whose log outlives it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kiv/backend.hpp"
#include "kiv/face_liveness_lite_sdk.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "kiv/testing/simulated_capture_vendor.hpp"
#include "platform/camera/fake_camera_authorization.hpp"
#include "sdk/face_liveness_lite_sdk_impl.hpp"
#include "base/state_manager.hpp"
#include "service/key_chain_manager.hpp"
#include "support/recording_delegate.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv::testing {

// A token whose payload names the issuer "acme".
inline const std::string kToken = "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9.eyJpc3MiOiJhY21lIn0.sig";
inline const std::string kSessionJson =
    R"({"id":"s-1","livenessAttemptId":"a-1","signedResponse":"signed-1","supplier":{"type":"iproov","token":"t-1"}})";

using CallLog = std::vector<std::string>;

// Names a parameterised case after its `name` field.
struct CaseName {
  template <typename P>
  std::string operator()(const ::testing::TestParamInfo<P>& param) const {
    return param.param.name;
  }
};

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

  KivFaceLivenessLiteSDK::Impl& facade() { return sdk->impl(); }
  static FakeCameraAuthorization& camera() { return static_cast<FakeCameraAuthorization&>(*platform()->camera); }
  static SimulatedCaptureVendor& vendor() { return static_cast<SimulatedCaptureVendor&>(*platform()->capture); }
  static bool running() { return KivSDKStateManager::shared().isRunning(); }
  static std::optional<std::string> storedToken() {
    return KivKeyChainManager::shared()->readString(kKivSDKService, kMobileTokenKey);
  }
  std::size_t sessionRequests() const { return server.requests("/bff/sessions").size(); }

  // Runs the loop until the prewarm fetch has completed.
  void settlePrewarm() {
    ASSERT_TRUE(loop().runUntil([&] { return !facade().inFlightPrewarm; }));
    settleAnalytics();
  }
  // Runs the loop until the run has ended, then lets analytics posts land.
  void finishRun() {
    ASSERT_TRUE(loop().runUntil([&] { return !running(); }));
    settleAnalytics();
  }
  // Lets the analytics posts started so far land: their bodies are built on
  // the pool and they end on the HTTP session's thread.
  void settleAnalytics() {
    testPlatform().pool->waitIdle();
    if (auto analytics = KivBFFAnalytics::shared()) analytics->waitForPendingPosts();
  }
  // The bodies of the analytics events named `event`, in arrival order.
  std::vector<Json> events(std::string_view event) {
    settleAnalytics();
    std::vector<Json> out;
    for (const auto& request : server.requests("/bff/track-analytics")) {
      auto body = request.bodyJson().value_or(Json::object());
      if (body.value("event", "") == event) out.push_back(std::move(body));
    }
    return out;
  }
  static std::string sessionIdOf(const Json& body) { return body["properties"].value("sessionId", ""); }

  RecordingHttpServer server;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<const CallLog> log = delegate->log();
  std::shared_ptr<KivFaceLivenessLiteSDK> sdk = KivFaceLivenessLiteSDK::make();
};

}  // namespace kiv::testing
