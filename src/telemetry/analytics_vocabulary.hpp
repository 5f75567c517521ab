// The analytics vocabulary: the values that name events, their kinds and
// results, the stages and endpoints they go to, and the SDK's identity. Every
// raw value is a wire value the backend's dashboards match on, and the
// endpoint's is persisted with queued events: none of them ever changes.
//
//   kiv::rawValue(KivAnalyticsEventName::sdkResult)       == "sdk_result"
//   kiv::fromRawValue<KivAnalyticsEndpoint>("crashlytics") -> crashlytics
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "kiv/environment.hpp"
#include "kiv/raw_value.hpp"

namespace kiv {

// The kind of host, sent as the `platform` envelope field.
enum class KivAnalyticsPlatform {
  nativeIOS,
  flutterIOS,
  reactNativeIOS,
};

template <>
struct RawValueTraits<KivAnalyticsPlatform> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsPlatform, std::string_view>, 3> table{{
      {KivAnalyticsPlatform::nativeIOS, "native_ios"},
      {KivAnalyticsPlatform::flutterIOS, "flutter_ios"},
      {KivAnalyticsPlatform::reactNativeIOS, "react_native_ios"},
  }};
};

// The backend stage events go to. Its wire value names the offline queue's
// storage and is sent as the `sdkInfoEnvironment` parameter.
enum class KivAnalyticsStage {
  prod,
  beta,
  dev,
};

template <>
struct RawValueTraits<KivAnalyticsStage> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsStage, std::string_view>, 3> table{{
      {KivAnalyticsStage::prod, "prod"},
      {KivAnalyticsStage::beta, "beta"},
      {KivAnalyticsStage::dev, "dev"},
  }};
};

// Where a body is posted: the raw value is appended to the analytics base
// URL. Persisted with queued events, so the raw values never change. No
// operation builds an identify post; the case lets queued ones decode.
enum class KivAnalyticsEndpoint {
  identifyAnalytics,
  trackAnalytics,
  crashlytics,
};

template <>
struct RawValueTraits<KivAnalyticsEndpoint> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsEndpoint, std::string_view>, 3> table{{
      {KivAnalyticsEndpoint::identifyAnalytics, "identify-analytics"},
      {KivAnalyticsEndpoint::trackAnalytics, "track-analytics"},
      {KivAnalyticsEndpoint::crashlytics, "crashlytics"},
  }};
};

// Result values callers put under the parameter key `result`; the envelope
// lifts them out. `canceled` and `cancelled` are two distinct cases with
// distinct wire values.
enum class KivAnalyticsResult {
  requested,
  granted,
  denied,
  connected,
  success,
  failure,
  canceled,
  error,
  session,
  transaction,
  finishWithSuccess,
  finishWithFailure,
  finishWithError,
  cancelled,
  recovered,
  exception,
  signal,
};

template <>
struct RawValueTraits<KivAnalyticsResult> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsResult, std::string_view>, 17> table{{
      {KivAnalyticsResult::requested, "requested"},
      {KivAnalyticsResult::granted, "granted"},
      {KivAnalyticsResult::denied, "denied"},
      {KivAnalyticsResult::connected, "connected"},
      {KivAnalyticsResult::success, "success"},
      {KivAnalyticsResult::failure, "failure"},
      {KivAnalyticsResult::canceled, "canceled"},
      {KivAnalyticsResult::error, "error"},
      {KivAnalyticsResult::session, "session"},
      {KivAnalyticsResult::transaction, "transaction"},
      {KivAnalyticsResult::finishWithSuccess, "finish_with_success"},
      {KivAnalyticsResult::finishWithFailure, "finish_with_failure"},
      {KivAnalyticsResult::finishWithError, "finish_with_error"},
      {KivAnalyticsResult::cancelled, "cancelled"},
      {KivAnalyticsResult::recovered, "recovered"},
      {KivAnalyticsResult::exception, "exception"},
      {KivAnalyticsResult::signal, "signal"},
  }};
};

// The parameter a caller puts a result's raw value under.
inline constexpr std::string_view kAnalyticsResultKey = "result";

// Event categories, sent as the `eventType` field.
enum class KivAnalyticsEventType {
  userInteraction,
  apiCall,
  sdkStep,
  sdkFlow,
  sdkError,
  identify,
  deviceInfo,
  crash,
};

template <>
struct RawValueTraits<KivAnalyticsEventType> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsEventType, std::string_view>, 8> table{{
      {KivAnalyticsEventType::userInteraction, "user_interaction"},
      {KivAnalyticsEventType::apiCall, "api_call"},
      {KivAnalyticsEventType::sdkStep, "sdk_step"},
      {KivAnalyticsEventType::sdkFlow, "sdk_flow"},
      {KivAnalyticsEventType::sdkError, "sdk_error"},
      {KivAnalyticsEventType::identify, "identify"},
      {KivAnalyticsEventType::deviceInfo, "device_info"},
      {KivAnalyticsEventType::crash, "crash"},
  }};
};

// Standard event names, sent as the `event` field.
enum class KivAnalyticsEventName {
  identify,
  startSdk,
  bridgeParams,
  firstOpen,
  crash,
  providerResponse,
  providerEvent,
  sdkResult,
  sdkClosed,
  cameraPermission,
  cameraPermissionGranted,
  cameraPermissionRequested,
  cameraPermissionDenied,
  sdkConfiguration,
  deviceIdentified,
  appIdentified,
  deviceData,
  apiResponse,
  fingerprintResponse,
  fingerprintImplementationMissing,
  captureScreenOpened,
  documentBackCaptureStarted,
  documentFrontCaptureStarted,
  previewScreenOpened,
  previewAccepted,
  previewScreenRetryClicked,
  documentCapturedValidated,
  uploadRouteCalled,
  validationRouteCalled,
  documentValidated,
  documentCaptureCompleted,
  captureFinished,
  sdkError,
  internalError,
  attestationRouteCalled,
  permissionRequested,
  permissionGranted,
  permissionDenied,
  noConnection,
  sdkBackground,
};

template <>
struct RawValueTraits<KivAnalyticsEventName> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsEventName, std::string_view>, 40> table{{
      {KivAnalyticsEventName::identify, "identify"},
      {KivAnalyticsEventName::startSdk, "start_sdk"},
      {KivAnalyticsEventName::bridgeParams, "bridge_params"},
      {KivAnalyticsEventName::firstOpen, "first_open"},
      {KivAnalyticsEventName::crash, "crash"},
      {KivAnalyticsEventName::providerResponse, "provider_response"},
      {KivAnalyticsEventName::providerEvent, "provider_event"},
      {KivAnalyticsEventName::sdkResult, "sdk_result"},
      {KivAnalyticsEventName::sdkClosed, "sdk_closed"},
      {KivAnalyticsEventName::cameraPermission, "camera_permission"},
      {KivAnalyticsEventName::cameraPermissionGranted, "camera_permission_granted"},
      {KivAnalyticsEventName::cameraPermissionRequested, "camera_permission_requested"},
      {KivAnalyticsEventName::cameraPermissionDenied, "camera_permission_denied"},
      {KivAnalyticsEventName::sdkConfiguration, "sdk_configuration"},
      {KivAnalyticsEventName::deviceIdentified, "device_identified"},
      {KivAnalyticsEventName::appIdentified, "app_identified"},
      {KivAnalyticsEventName::deviceData, "device_data"},
      {KivAnalyticsEventName::apiResponse, "api_response"},
      {KivAnalyticsEventName::fingerprintResponse, "fingerprint_response"},
      {KivAnalyticsEventName::fingerprintImplementationMissing, "fingerprint_implementation_missing"},
      {KivAnalyticsEventName::captureScreenOpened, "capture_screen_opened"},
      {KivAnalyticsEventName::documentBackCaptureStarted, "document_back_capture_started"},
      {KivAnalyticsEventName::documentFrontCaptureStarted, "document_front_capture_started"},
      {KivAnalyticsEventName::previewScreenOpened, "preview_screen_opened"},
      {KivAnalyticsEventName::previewAccepted, "preview_accepted"},
      {KivAnalyticsEventName::previewScreenRetryClicked, "preview_screen_retry_clicked"},
      {KivAnalyticsEventName::documentCapturedValidated, "document_captured_validated"},
      {KivAnalyticsEventName::uploadRouteCalled, "upload_route_called"},
      {KivAnalyticsEventName::validationRouteCalled, "validation_route_called"},
      {KivAnalyticsEventName::documentValidated, "document_validated"},
      {KivAnalyticsEventName::documentCaptureCompleted, "document_capture_completed"},
      {KivAnalyticsEventName::captureFinished, "capture_finished"},
      {KivAnalyticsEventName::sdkError, "sdk_error"},
      {KivAnalyticsEventName::internalError, "internal_error"},
      {KivAnalyticsEventName::attestationRouteCalled, "attestation_route_called"},
      {KivAnalyticsEventName::permissionRequested, "permission_requested"},
      {KivAnalyticsEventName::permissionGranted, "permission_granted"},
      {KivAnalyticsEventName::permissionDenied, "permission_denied"},
      {KivAnalyticsEventName::noConnection, "no_connection"},
      {KivAnalyticsEventName::sdkBackground, "sdk_background"},
  }};
};

// Events with a fixed name and type. Each is one of the standard names
// with the kind it is always sent as.
enum class KivAnalyticsFixedEvent {
  identify,
  startSdk,
  firstOpen,
  crash,
  captureScreenOpened,
  documentBackCaptureStarted,
  documentFrontCaptureStarted,
  previewScreenOpened,
  previewAccepted,
  previewScreenRetryClicked,
  documentCapturedValidated,
  uploadRouteCalled,
  validationRouteCalled,
  documentValidated,
  documentCaptureCompleted,
  captureFinished,
  sdkError,
  internalError,
  attestationRouteCalled,
  permissionRequested,
  permissionGranted,
  permissionDenied,
  noConnection,
};

struct KivAnalyticsFixedEventForm {
  KivAnalyticsFixedEvent event;
  KivAnalyticsEventName name;
  KivAnalyticsEventType type;
};

inline constexpr std::array<KivAnalyticsFixedEventForm, 23> kFixedEvents{{
    {KivAnalyticsFixedEvent::identify, KivAnalyticsEventName::identify, KivAnalyticsEventType::identify},
    {KivAnalyticsFixedEvent::startSdk, KivAnalyticsEventName::startSdk, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::firstOpen, KivAnalyticsEventName::firstOpen, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::crash, KivAnalyticsEventName::crash, KivAnalyticsEventType::crash},
    {KivAnalyticsFixedEvent::captureScreenOpened, KivAnalyticsEventName::captureScreenOpened,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentBackCaptureStarted, KivAnalyticsEventName::documentBackCaptureStarted,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentFrontCaptureStarted, KivAnalyticsEventName::documentFrontCaptureStarted,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewScreenOpened, KivAnalyticsEventName::previewScreenOpened,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewAccepted, KivAnalyticsEventName::previewAccepted,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewScreenRetryClicked, KivAnalyticsEventName::previewScreenRetryClicked,
     KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentCapturedValidated, KivAnalyticsEventName::documentCapturedValidated,
     KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::uploadRouteCalled, KivAnalyticsEventName::uploadRouteCalled,
     KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::validationRouteCalled, KivAnalyticsEventName::validationRouteCalled,
     KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::documentValidated, KivAnalyticsEventName::documentValidated,
     KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::documentCaptureCompleted, KivAnalyticsEventName::documentCaptureCompleted,
     KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::captureFinished, KivAnalyticsEventName::captureFinished, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::sdkError, KivAnalyticsEventName::sdkError, KivAnalyticsEventType::sdkError},
    {KivAnalyticsFixedEvent::internalError, KivAnalyticsEventName::internalError, KivAnalyticsEventType::sdkError},
    {KivAnalyticsFixedEvent::attestationRouteCalled, KivAnalyticsEventName::attestationRouteCalled,
     KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::permissionRequested, KivAnalyticsEventName::permissionRequested,
     KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::permissionGranted, KivAnalyticsEventName::permissionGranted,
     KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::permissionDenied, KivAnalyticsEventName::permissionDenied, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::noConnection, KivAnalyticsEventName::noConnection, KivAnalyticsEventType::sdkError},
}};

constexpr const KivAnalyticsFixedEventForm& fixedEventForm(KivAnalyticsFixedEvent event) {
  for (const auto& form : kFixedEvents) {
    if (form.event == event) return form;
  }
  return kFixedEvents.front();  // unreachable for a valid case
}

// The stage of the same name as a public environment, and back.
constexpr KivAnalyticsStage analyticsStage(KivEnvironment environment) {
  switch (environment) {
    case KivEnvironment::dev:
      return KivAnalyticsStage::dev;
    case KivEnvironment::beta:
      return KivAnalyticsStage::beta;
    case KivEnvironment::prod:
      break;
  }
  return KivAnalyticsStage::prod;
}

constexpr KivEnvironment environmentOf(KivAnalyticsStage stage) {
  switch (stage) {
    case KivAnalyticsStage::dev:
      return KivEnvironment::dev;
    case KivAnalyticsStage::beta:
      return KivEnvironment::beta;
    case KivAnalyticsStage::prod:
      break;
  }
  return KivEnvironment::prod;
}

// The SDK's own name and version, as reported in every event.
struct KivSDKInfo {
  std::string name;
  std::string version;
  friend bool operator==(const KivSDKInfo&, const KivSDKInfo&) = default;
};

}  // namespace kiv
