#include "kiv/face_liveness_lite_sdk.hpp"
#include "platform/console/debug_line.hpp"

#include <array>
#include <cstdint>

#include "base/current_environment.hpp"
#include "base/json.hpp"
#include "base/state_manager.hpp"
#include "flow/default_iproov_launcher.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "sdk/face_liveness_lite_sdk_impl.hpp"
#include "service/jwt_decoder.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/context_collector.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {}  // namespace

// --- The public surface: each call keeps the state alive for its duration,
// so a delegate that releases the facade from inside a call is safe. ---------

std::shared_ptr<KivFaceLivenessLiteSDK> KivFaceLivenessLiteSDK::make() {
  return std::shared_ptr<KivFaceLivenessLiteSDK>(new KivFaceLivenessLiteSDK());
}

KivFaceLivenessLiteSDK::KivFaceLivenessLiteSDK() : impl_(std::make_shared<Impl>()) {}
KivFaceLivenessLiteSDK::~KivFaceLivenessLiteSDK() = default;

std::shared_ptr<KivFaceLivenessLiteDelegate> KivFaceLivenessLiteSDK::delegate() const { return impl_->delegate.lock(); }

void KivFaceLivenessLiteSDK::setDelegate(std::weak_ptr<KivFaceLivenessLiteDelegate> delegate) {
  KIV_ASSERT_MAIN_THREAD();
  impl_->delegate = std::move(delegate);
}

void KivFaceLivenessLiteSDK::setup(std::string mobileToken, std::string personId,
                                   std::optional<std::string> customLocalization,
                                   ResourceBundleRef customLocalizationBundle,
                                   std::optional<DorvinUiCustomization> uiCustomization, KivEnvironment environment,
                                   bool loading) {
  const auto impl = impl_;
  impl->setup(Configuration{.mobileToken = std::move(mobileToken),
                            .personId = std::move(personId),
                            .customLocalization = std::move(customLocalization),
                            .customLocalizationBundle = std::move(customLocalizationBundle),
                            .uiCustomization = std::move(uiCustomization),
                            .environment = environment,
                            .loading = loading});
}

void KivFaceLivenessLiteSDK::prewarm() {
  const auto impl = impl_;
  impl->prewarm();
}

void KivFaceLivenessLiteSDK::startSDK(std::shared_ptr<ViewController> viewController) {
  const auto impl = impl_;
  impl->startSDK(std::move(viewController));
}

// --- Lifecycle -----------------------------------------------------------------

KivFaceLivenessLiteSDK::Impl::~Impl() {
  // The handler holds the facade weakly; unregistering just frees it now.
  if (backgroundObserver) platform()->notifications->removeObserver(*backgroundObserver);

  // A run the host abandons with the facade must still stop the capture,
  // delete the credentials and give the run guard back, or no later run
  // could start. Its delegate relay goes first, so nobody hears of it.
  runDelegate.reset();
  if (!viewModel || viewModel->didDeliverResult()) return;
  auto end = [model = std::move(viewModel)] {
    model->finishWithError(KivErrorType::unexpectedErrorException, std::string(kReleasedDuringRunDescription));
  };
  const auto queue = platform()->mainQueue;
  if (queue->isCurrent()) {
    end();
  } else {
    queue->post(std::move(end));
  }
}

void KivFaceLivenessLiteSDK::Impl::setup(Configuration newConfiguration) {
  KIV_ASSERT_MAIN_THREAD();
  const auto previous = std::exchange(configuration, std::move(newConfiguration));
  const Configuration& current = *configuration;

  if (prewarmed && !matchesConfiguration(prewarmed->mobileToken, prewarmed->personId, prewarmed->environment)) {
    removeBackgroundObserver();
    discardPrewarm();
  }
  setCurrentEnvironment(current.environment);

  // A running attempt keeps reporting under the session it started with.
  if (KivSDKStateManager::shared().isRunning()) return;
  if (!previous || previous->mobileToken != current.mobileToken || previous->personId != current.personId ||
      previous->environment != current.environment) {
    analyticsSessionId.reset();
  }
  ensureAnalyticsSession();
}

bool KivFaceLivenessLiteSDK::Impl::matchesConfiguration(const std::string& mobileToken, const std::string& personId,
                                                        KivEnvironment environment) const {
  return configuration && configuration->mobileToken == mobileToken && configuration->personId == personId &&
         configuration->environment == environment;
}

std::string KivFaceLivenessLiteSDK::Impl::ensureAnalyticsSession() {
  if (!configuration) return "";
  if (analyticsSessionId && analytics && !analyticsSessionConsumed) return *analyticsSessionId;

  std::string sessionId = randomUuidText();
  KivBFFAnalytics::configure({
      .sessionId = sessionId,
      .platform = KivAnalyticsPlatform::nativeIOS,
      .stage = analyticsStage(configuration->environment),
      .clientId = KivJWTDecoder::issuer(configuration->mobileToken).value_or(configuration->mobileToken),
      .mobileToken = configuration->mobileToken,
      .personId = configuration->personId,
      .sdk = {std::string(kSdkName), std::string(kSdkVersion)},
      .sessionConfiguration = std::nullopt,
      .entrypoint = std::nullopt,
      .entrypointVersion = std::nullopt,
  });
  analytics = KivBFFAnalytics::shared();
  analyticsSessionId = sessionId;
  analyticsSessionConsumed = false;
  return sessionId;
}

void KivFaceLivenessLiteSDK::Impl::startSDK(std::shared_ptr<ViewController> viewController) {
  KIV_ASSERT_MAIN_THREAD();
  if (!configuration) {
    if (auto host = delegate.lock()) {
      host->didFinishWithError(KivErrorType::invalidOptionsException, std::string(kStartBeforeSetupDescription));
    }
    return;
  }
  if (!KivSDKStateManager::shared().beginRun()) {
    printDebugLine(kAlreadyStartedLine);
    return;
  }
  setCurrentEnvironment(configuration->environment);
  const std::string sessionId = ensureAnalyticsSession();
  analyticsSessionConsumed = true;

  if (auto handler = KivCrashHandler::shared()) handler->install(std::string(kKivSDKService), true);

  sendStartEvent(sessionId, hasUsablePrewarm());

  runDelegate = std::make_shared<DelegateRelay>(delegate);
  viewModel = KivFaceLivenessLiteViewModel::make({
      .service = makeService(),
      .viewController = std::move(viewController),
      .personId = configuration->personId,
      .customLocalization = configuration->customLocalization,
      .customLocalizationBundle = configuration->customLocalizationBundle,
      .uiCustomization = configuration->uiCustomization,
      .loading = configuration->loading,
      .analytics = analytics,
      .launcher = std::make_unique<DefaultIProovLauncher>(),
      .delegate = runDelegate,
  });
  if (!viewModel->storeCredentials(configuration->mobileToken, configuration->personId)) return;

  const auto camera = platform()->camera;
  switch (camera->status()) {
    case CameraAuthorizationStatus::notDetermined:
      logCameraPermission(KivAnalyticsResult::requested);
      camera->requestAccess([weak = weak_from_this(), queue = platform()->mainQueue](bool granted) {
        queue->post([weak, granted] {
          if (auto self = weak.lock()) self->onCameraAnswer(granted);
        });
      });
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

void KivFaceLivenessLiteSDK::Impl::onCameraAnswer(bool granted) {
  logCameraPermission(granted ? KivAnalyticsResult::granted : KivAnalyticsResult::denied);
  if (!viewModel) return;
  // The model may be replaced by the time a late answer arrives; the one in
  // place is the one waiting for it, since no other run could start.
  const auto model = viewModel;
  if (granted) {
    model->start(takePrewarmState());
  } else {
    model->finishWithError(KivErrorType::cameraPermission,
                           std::string(KivFaceLivenessLiteViewModel::kCameraPermissionDeniedDescription));
  }
}

std::shared_ptr<KivService> KivFaceLivenessLiteSDK::Impl::makeService() const {
  return KivService::create(KivService::makeURLSession(), std::string(kMobileTokenKey), analytics);
}

void KivFaceLivenessLiteSDK::Impl::sendStartEvent(const std::string& sessionId, bool usedPrewarm) const {
  platform()->taskPool->post([client = analytics, sessionId, environment = configuration->environment,
                              loading = configuration->loading, usedPrewarm] {
    const auto defaults = platform()->defaults;
    const bool firstOpen = !defaults->string(kInstallGuidKey).has_value();
    if (firstOpen) defaults->setString(kInstallGuidKey, sessionId);
    if (!client) return;

    Json properties = Json::object();
    properties["firstOpen"] = firstOpen;
    properties["stage"] = toString(environment);
    properties["loading"] = loading;
    properties["usedPrewarm"] = usedPrewarm;
    properties["deviceIdentified"] = KivContextCollector::hashedAdvertisingIdentifier();
    properties["deviceData"] = KivDeviceInfo::deviceData();
    properties["model"] = KivDeviceInfo::modelName(KivDeviceInfo::modelIdentifier());
    properties["osVersion"] = KivContextCollector::systemVersion();
    properties["isJailbroken"] = false;
    properties["appId"] = KivContextCollector::bundleIdentifier().value_or("");
    properties["appName"] = KivDeviceInfo::appName().value_or("");
    properties["appVersion"] = KivDeviceInfo::appVersion();
    client->track(KivAnalyticsFixedEvent::startSdk, std::move(properties));
  });
}

void KivFaceLivenessLiteSDK::Impl::logCameraPermission(KivAnalyticsResult result) const {
  if (!analytics) return;
  platform()->taskPool->post([client = analytics, result] {
    client->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::cameraPermission, KivAnalyticsEventType::sdkStep),
                  KivBFFAnalytics::TextParams{resultParameter(result)});
  });
}

}  // namespace kiv
