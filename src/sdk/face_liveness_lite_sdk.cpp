#include "kiv/face_liveness_lite_sdk.hpp"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/current_environment.hpp"
#include "base/state_manager.hpp"
#include "flow/default_iproov_launcher.hpp"
#include "flow/face_liveness_view_model.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/console/debug_line.hpp"
#include "platform/dispatch/bind_to_main.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "sdk/delegate_relay.hpp"
#include "sdk/prewarm_cache.hpp"
#include "service/jwt_decoder.hpp"
#include "service/key_chain_manager.hpp"
#include "service/kiv_service.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/bff_analytics.hpp"
#include "telemetry/context_collector.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/start_event.hpp"

namespace kiv {
namespace {

constexpr std::string_view kSdkName = "KivFaceLivenessLite";
// The build's version (CMake's project version), which the library file and
// its SONAME carry too.
constexpr std::string_view kSdkVersion = KIV_SDK_VERSION;
constexpr std::string_view kStartBeforeSetupDescription =
    "setup(mobileToken:personId:) must be called before startSDK(viewController:)";
constexpr std::string_view kAlreadyStartedLine = "KivFaceLivenessLite SDK has already started.";
constexpr std::string_view kPrewarmBeforeSetupLine = "KivFaceLivenessLite: prewarm() called before setup().";
// The error a run ends with when the host releases the facade during it
// (seen only in analytics).
constexpr std::string_view kReleasedDuringRunDescription = "The SDK was released during the run";

// The facade make() returns. Main thread only, no lock: the camera answer and
// the prewarm's own callbacks reach it through the main queue, holding it
// weakly. Background tasks (the start event, camera-permission events) take
// copies of what they need and never touch it.
class Facade final : public KivFaceLivenessLiteSDK, public std::enable_shared_from_this<Facade> {
 public:
  Facade() = default;
  ~Facade() override;

  std::shared_ptr<KivFaceLivenessLiteDelegate> delegate() const override { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<KivFaceLivenessLiteDelegate> delegate) override;
  void setup(std::string mobileToken, std::string personId, std::optional<std::string> customLocalization,
             ResourceBundleRef customLocalizationBundle, std::optional<DorvinUiCustomization> uiCustomization,
             KivEnvironment environment, bool loading) override;
  void prewarm() override;
  void startSDK(std::shared_ptr<ViewController> viewController) override;

 private:
  // The arguments of the last setup().
  struct Configuration {
    std::string mobileToken;
    std::string personId;
    std::optional<std::string> customLocalization;
    ResourceBundleRef customLocalizationBundle;
    std::optional<DorvinUiCustomization> uiCustomization;
    KivEnvironment environment = KivEnvironment::prod;
    bool loading = false;
  };

  void prewarmOnMain();
  // The id of the analytics session to report under, opening a new one (and
  // configuring the shared analytics client for it) when there is none or
  // the current one was used by a start. Empty without a configuration.
  std::string ensureAnalyticsSession();
  // Starts the model's attempt, or ends it for a refused camera.
  void onCameraAnswer(bool granted);
  // Sends the camera_permission event from a background task.
  void logCameraPermission(KivAnalyticsResult result);
  // Posts a telemetry task to the pool, or holds it while startSDK runs.
  void postTelemetry(Task task);

  // Holds the facade's telemetry for its lifetime, then hands it, in order,
  // to the run (which posts it once its capture has launched) or to the
  // pool. A start made from a delegate call inside a start adds to the
  // outer hold.
  class HeldTelemetry {
   public:
    explicit HeldTelemetry(Facade& facade) : facade_(facade), outer_(!facade.heldTelemetry_) {
      if (outer_) facade_.heldTelemetry_.emplace();
    }
    ~HeldTelemetry() {
      if (!outer_) return;
      auto tasks = std::move(*std::exchange(facade_.heldTelemetry_, std::nullopt));
      if (facade_.viewModel_) {
        facade_.viewModel_->postOnceLaunched(std::move(tasks));
      } else {
        for (auto& task : tasks) platform()->taskPool->post(std::move(task));
      }
    }
    HeldTelemetry(const HeldTelemetry&) = delete;
    HeldTelemetry& operator=(const HeldTelemetry&) = delete;

   private:
    Facade& facade_;
    const bool outer_;
  };
  // A backend service as every start and prewarm builds it.
  std::shared_ptr<KivService> makeService() const;

  std::weak_ptr<KivFaceLivenessLiteDelegate> delegate_;
  std::shared_ptr<KivFaceLivenessLiteViewModel> viewModel_;
  std::shared_ptr<KivBFFAnalytics> analytics_;
  std::optional<std::string> analyticsSessionId_;
  bool analyticsSessionConsumed_ = false;
  std::optional<Configuration> configuration_;
  const std::shared_ptr<PrewarmCache> prewarm_ = PrewarmCache::make();
  // What the last run reports through; released with the facade, so that a
  // run outliving it calls no one.
  std::shared_ptr<DelegateRelay> runDelegate_;
  // Telemetry of the startSDK call under way; absent outside one.
  std::optional<std::vector<Task>> heldTelemetry_;
};

// Each public call keeps the facade alive for its duration, so a delegate
// that releases it from inside a call is safe.

Facade::~Facade() {
  // A run the host abandons with the facade must still stop the capture,
  // delete the credentials and give the run guard back, or no later run
  // could start. Its delegate relay goes first, so nobody hears of it.
  runDelegate_.reset();
  if (!viewModel_ || viewModel_->didDeliverResult()) return;
  auto end = [model = std::move(viewModel_)] {
    model->finishWithError(KivErrorType::unexpectedErrorException, std::string(kReleasedDuringRunDescription));
  };
  const auto queue = platform()->mainQueue;
  if (queue->isCurrent()) {
    end();
  } else {
    queue->post(std::move(end));
  }
}

void Facade::setDelegate(std::weak_ptr<KivFaceLivenessLiteDelegate> delegate) {
  KIV_ASSERT_MAIN_THREAD();
  delegate_ = std::move(delegate);
}

void Facade::setup(std::string mobileToken, std::string personId, std::optional<std::string> customLocalization,
                   ResourceBundleRef customLocalizationBundle, std::optional<DorvinUiCustomization> uiCustomization,
                   KivEnvironment environment, bool loading) {
  KIV_ASSERT_MAIN_THREAD();
  const auto self = shared_from_this();
  const auto previous =
      std::exchange(configuration_, Configuration{
                                        .mobileToken = std::move(mobileToken),
                                        .personId = std::move(personId),
                                        .customLocalization = std::move(customLocalization),
                                        .customLocalizationBundle = std::move(customLocalizationBundle),
                                        .uiCustomization = std::move(uiCustomization),
                                        .environment = environment,
                                        .loading = loading,
                                    });
  const Configuration& current = *configuration_;
  prewarm_->setIdentity({current.mobileToken, current.personId, current.environment});
  setCurrentEnvironment(current.environment);

  // A running attempt keeps reporting under the session it started with.
  if (KivSDKStateManager::shared().isRunning()) return;
  if (!previous || previous->mobileToken != current.mobileToken || previous->personId != current.personId ||
      previous->environment != current.environment) {
    analyticsSessionId_.reset();
  }
  ensureAnalyticsSession();
}

void Facade::prewarm() { bindToMain(weak_from_this(), &Facade::prewarmOnMain, MainHop::inlineOnMain)(); }

void Facade::prewarmOnMain() {
  KIV_ASSERT_MAIN_THREAD();
  if (!configuration_) {
    printDebugLine(kPrewarmBeforeSetupLine);
    return;
  }
  prewarm_->prewarm([this] {
    setCurrentEnvironment(configuration_->environment);
    ensureAnalyticsSession();
    return makeService();
  });
}

std::string Facade::ensureAnalyticsSession() {
  if (!configuration_) return "";
  if (analyticsSessionId_ && analytics_ && !analyticsSessionConsumed_) return *analyticsSessionId_;

  std::string sessionId = randomUuidText();
  KivBFFAnalytics::configure({
      .sessionId = sessionId,
      .platform = KivAnalyticsPlatform::nativeIOS,
      .stage = analyticsStage(configuration_->environment),
      .clientId = KivJWTDecoder::issuer(configuration_->mobileToken).value_or(configuration_->mobileToken),
      .mobileToken = configuration_->mobileToken,
      .personId = configuration_->personId,
      .sdk = {std::string(kSdkName), std::string(kSdkVersion)},
      .sessionConfiguration = std::nullopt,
      .entrypoint = std::nullopt,
      .entrypointVersion = std::nullopt,
  });
  analytics_ = KivBFFAnalytics::shared();
  analyticsSessionId_ = sessionId;
  analyticsSessionConsumed_ = false;
  return sessionId;
}

void Facade::startSDK(std::shared_ptr<ViewController> viewController) {
  KIV_ASSERT_MAIN_THREAD();
  const auto self = shared_from_this();
  if (!configuration_) {
    if (auto host = delegate_.lock()) {
      host->didFinishWithError(KivErrorType::invalidOptionsException, std::string(kStartBeforeSetupDescription));
    }
    return;
  }
  if (!KivSDKStateManager::shared().beginRun()) {
    printDebugLine(kAlreadyStartedLine);
    return;
  }
  setCurrentEnvironment(configuration_->environment);
  const std::string sessionId = ensureAnalyticsSession();
  analyticsSessionConsumed_ = true;

  if (auto handler = KivCrashHandler::shared()) handler->install(std::string(kKivSDKService), true);

  // The events of the start are posted, in order, once the capture has
  // launched (or the attempt has ended, or waits for the person to answer
  // the camera prompt): on a single or a busy core their tasks, and the
  // posts they make, would otherwise take the CPU from the start they report
  // on.
  const HeldTelemetry held(*this);
  postTelemetry([client = analytics_, facts = StartEventFacts{
                                          .sessionId = sessionId,
                                          .environment = configuration_->environment,
                                          .loading = configuration_->loading,
                                          .usedPrewarm = prewarm_->hasUsable(),
                                      }] { trackStartEvent(client, facts); });

  runDelegate_ = std::make_shared<DelegateRelay>(delegate_);
  viewModel_ = KivFaceLivenessLiteViewModel::make({
      .service = makeService(),
      .viewController = std::move(viewController),
      .personId = configuration_->personId,
      .customLocalization = configuration_->customLocalization,
      .customLocalizationBundle = configuration_->customLocalizationBundle,
      .uiCustomization = configuration_->uiCustomization,
      .loading = configuration_->loading,
      .environment = configuration_->environment,
      .analytics = analytics_,
      .launcher = std::make_unique<DefaultIProovLauncher>(),
      .delegate = runDelegate_,
  });
  if (!viewModel_->storeCredentials(configuration_->mobileToken, configuration_->personId)) return;

  const auto camera = platform()->camera;
  switch (camera->status()) {
    case CameraAuthorizationStatus::notDetermined:
      logCameraPermission(KivAnalyticsResult::requested);
      camera->requestAccess(bindToMain(weak_from_this(), &Facade::onCameraAnswer));
      break;
    case CameraAuthorizationStatus::authorized:
      onCameraAnswer(true);
      break;
    case CameraAuthorizationStatus::denied:
    case CameraAuthorizationStatus::restricted:
      onCameraAnswer(false);
      break;
  }
}

void Facade::onCameraAnswer(bool granted) {
  logCameraPermission(granted ? KivAnalyticsResult::granted : KivAnalyticsResult::denied);
  if (!viewModel_) return;
  // The model may be replaced by the time a late answer arrives; the one in
  // place is the one waiting for it, since no other run could start.
  const auto model = viewModel_;
  if (granted) {
    model->start(prewarm_->take());
  } else {
    model->finishWithError(KivErrorType::cameraPermission,
                           std::string(KivFaceLivenessLiteViewModel::kCameraPermissionDeniedDescription));
  }
}

std::shared_ptr<KivService> Facade::makeService() const {
  return KivService::create(KivService::makeURLSession(), std::string(kMobileTokenKey), analytics_);
}

void Facade::postTelemetry(Task task) {
  if (heldTelemetry_) {
    heldTelemetry_->push_back(std::move(task));
  } else {
    platform()->taskPool->post(std::move(task));
  }
}

void Facade::logCameraPermission(KivAnalyticsResult result) {
  if (!analytics_) return;
  postTelemetry([client = analytics_, result] {
    client->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::cameraPermission, KivAnalyticsEventType::sdkStep),
                  KivBFFAnalytics::TextParams{resultParameter(result)});
  });
}

}  // namespace

std::shared_ptr<KivFaceLivenessLiteSDK> KivFaceLivenessLiteSDK::make() { return std::make_shared<Facade>(); }

}  // namespace kiv
