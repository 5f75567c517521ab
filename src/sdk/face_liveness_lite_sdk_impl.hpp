// The state behind KivFaceLivenessLiteSDK and the operations on it: the
// configuration, the analytics session, the start of a run, and the prewarm
// cache (a session fetched ahead of time, kept 90 seconds for the same
// credentials and environment, or handed to a run that starts while it is
// still being fetched).
//
//   auto sdk = KivFaceLivenessLiteSDK::make();
//   sdk->setup(...);
//   KivFaceLivenessLiteSDK::Impl& facade = sdk->impl();
//   facade.hasUsablePrewarm();
//
// Main thread only, no lock: the fetch completion, the camera answer and the
// background notification all reach it through the main queue, holding it
// weakly. Background tasks (the start event, camera-permission events) take
// copies of what they need and never touch it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "flow/face_liveness_view_model.hpp"
#include "flow/prewarm_state.hpp"
#include "kiv/face_liveness_lite_sdk.hpp"
#include "kiv/platform/clock.hpp"
#include "kiv/platform/notification_center.hpp"
#include "sdk/delegate_relay.hpp"
#include "service/kiv_service.hpp"
#include "service/session_format.hpp"
#include "telemetry/analytics_vocabulary.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {

struct KivFaceLivenessLiteSDK::Impl : std::enable_shared_from_this<KivFaceLivenessLiteSDK::Impl> {
  // A session fetched ahead of time, with the identity it was fetched for.
  struct PrewarmedSession {
    SessionResponse response;
    std::string mobileToken;
    std::string personId;
    KivEnvironment environment;
    TimePoint fetchedAt;
  };

  // The identity of the fetch under way.
  struct InFlightPrewarm {
    std::string mobileToken;
    std::string personId;
    KivEnvironment environment;
  };

  using PrewarmWaiter = PrewarmState::Completion;

  static constexpr std::string_view kSdkName = "KivFaceLivenessLite";
  static constexpr std::string_view kSdkVersion = "3.2.1";
  static constexpr std::string_view kInstallGuidKey = "install_guid";
  // A prewarmed session is usable while 0 <= age < this, in seconds.
  static constexpr double kPrewarmFreshnessSeconds = 90.0;
  static constexpr std::string_view kStartBeforeSetupDescription =
      "setup(mobileToken:personId:) must be called before startSDK(viewController:)";
  static constexpr std::string_view kAlreadyStartedLine = "KivFaceLivenessLite SDK has already started.";
  static constexpr std::string_view kPrewarmBeforeSetupLine = "KivFaceLivenessLite: prewarm() called before setup().";

  Impl() = default;
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  // --- Lifecycle ------------------------------------------------------------
  void setup(Configuration newConfiguration);
  // Whether the stored configuration has exactly these credentials and
  // environment; false without one.
  bool matchesConfiguration(const std::string& mobileToken, const std::string& personId,
                            KivEnvironment environment) const;
  // The id of the analytics session to report under, opening a new one (and
  // configuring the shared analytics client for it) when there is none or the
  // current one was used by a start. Empty without a configuration.
  std::string ensureAnalyticsSession();
  void startSDK(std::shared_ptr<ViewController> viewController);
  // Sends the camera_permission event from a background task.
  void logCameraPermission(KivAnalyticsResult result) const;

  // --- Prewarm --------------------------------------------------------------
  // Any thread: runs prewarmOnMain() at once on the main thread, otherwise
  // from the main queue (with the facade held weakly).
  void prewarm();
  void prewarmOnMain();
  void completePrewarm(const APIResult<SessionResponse>& result, const Configuration& configurationAtStart);
  bool isUsablePrewarm(const PrewarmedSession& session) const;
  bool hasUsablePrewarm() const;
  PrewarmState takePrewarmState();
  void registerPrewarmWaiter(PrewarmWaiter callback);
  void installBackgroundObserver();
  void removeBackgroundObserver();
  void discardPrewarm();

  // Fields in the facade's declared order.
  std::weak_ptr<KivFaceLivenessLiteDelegate> delegate;
  std::shared_ptr<KivFaceLivenessLiteViewModel> viewModel;
  std::shared_ptr<KivBFFAnalytics> analytics;
  std::optional<std::string> analyticsSessionId;
  bool analyticsSessionConsumed = false;
  std::optional<Configuration> configuration;
  std::optional<PrewarmedSession> prewarmed;
  std::optional<InFlightPrewarm> inFlightPrewarm;
  PrewarmWaiter prewarmWaiter;  // empty when none
  bool prewarmAbandoned = false;
  std::optional<NotificationCenter::Token> backgroundObserver;

  // What the last run reports through; released with the facade, so that
  // a run outliving it calls no one.
  std::shared_ptr<DelegateRelay> runDelegate;

  // The description of the error a run ends with when the host releases
  // the facade during it (seen only in analytics).
  static constexpr std::string_view kReleasedDuringRunDescription = "The SDK was released during the run";

 private:
  // The start event, from a background task.
  void sendStartEvent(const std::string& sessionId, bool usedPrewarm) const;
  // Starts the model's attempt, or ends it for a refused camera.
  void onCameraAnswer(bool granted);
  // The credentials a prewarm fetch needs in the secure store; false when a
  // save failed.
  static bool persistCredentials(const Configuration& configuration);
  // A backend service as every start and prewarm builds it.
  std::shared_ptr<KivService> makeService() const;
  bool isFresh(TimePoint fetchedAt) const;
};

}  // namespace kiv
