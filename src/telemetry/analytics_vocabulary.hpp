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

// Events with a fixed name and type. The raw value is the `event` field;
// fixedEventType() gives the `eventType`.
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

template <>
struct RawValueTraits<KivAnalyticsFixedEvent> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivAnalyticsFixedEvent, std::string_view>, 23> table{{
      {KivAnalyticsFixedEvent::identify, "identify"},
      {KivAnalyticsFixedEvent::startSdk, "start_sdk"},
      {KivAnalyticsFixedEvent::firstOpen, "first_open"},
      {KivAnalyticsFixedEvent::crash, "crash"},
      {KivAnalyticsFixedEvent::captureScreenOpened, "capture_screen_opened"},
      {KivAnalyticsFixedEvent::documentBackCaptureStarted, "document_back_capture_started"},
      {KivAnalyticsFixedEvent::documentFrontCaptureStarted, "document_front_capture_started"},
      {KivAnalyticsFixedEvent::previewScreenOpened, "preview_screen_opened"},
      {KivAnalyticsFixedEvent::previewAccepted, "preview_accepted"},
      {KivAnalyticsFixedEvent::previewScreenRetryClicked, "preview_screen_retry_clicked"},
      {KivAnalyticsFixedEvent::documentCapturedValidated, "document_captured_validated"},
      {KivAnalyticsFixedEvent::uploadRouteCalled, "upload_route_called"},
      {KivAnalyticsFixedEvent::validationRouteCalled, "validation_route_called"},
      {KivAnalyticsFixedEvent::documentValidated, "document_validated"},
      {KivAnalyticsFixedEvent::documentCaptureCompleted, "document_capture_completed"},
      {KivAnalyticsFixedEvent::captureFinished, "capture_finished"},
      {KivAnalyticsFixedEvent::sdkError, "sdk_error"},
      {KivAnalyticsFixedEvent::internalError, "internal_error"},
      {KivAnalyticsFixedEvent::attestationRouteCalled, "attestation_route_called"},
      {KivAnalyticsFixedEvent::permissionRequested, "permission_requested"},
      {KivAnalyticsFixedEvent::permissionGranted, "permission_granted"},
      {KivAnalyticsFixedEvent::permissionDenied, "permission_denied"},
      {KivAnalyticsFixedEvent::noConnection, "no_connection"},
  }};
};

// The `eventType` of each fixed event, in declaration order.
inline constexpr std::array<std::pair<KivAnalyticsFixedEvent, KivAnalyticsEventType>, 23> kFixedEventTypes{{
    {KivAnalyticsFixedEvent::identify, KivAnalyticsEventType::identify},
    {KivAnalyticsFixedEvent::startSdk, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::firstOpen, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::crash, KivAnalyticsEventType::crash},
    {KivAnalyticsFixedEvent::captureScreenOpened, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentBackCaptureStarted, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentFrontCaptureStarted, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewScreenOpened, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewAccepted, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::previewScreenRetryClicked, KivAnalyticsEventType::userInteraction},
    {KivAnalyticsFixedEvent::documentCapturedValidated, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::uploadRouteCalled, KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::validationRouteCalled, KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::documentValidated, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::documentCaptureCompleted, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::captureFinished, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::sdkError, KivAnalyticsEventType::sdkError},
    {KivAnalyticsFixedEvent::internalError, KivAnalyticsEventType::sdkError},
    {KivAnalyticsFixedEvent::attestationRouteCalled, KivAnalyticsEventType::apiCall},
    {KivAnalyticsFixedEvent::permissionRequested, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::permissionGranted, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::permissionDenied, KivAnalyticsEventType::sdkStep},
    {KivAnalyticsFixedEvent::noConnection, KivAnalyticsEventType::sdkError},
}};
constexpr KivAnalyticsEventType fixedEventType(KivAnalyticsFixedEvent event) {
  for (const auto& [item, type] : kFixedEventTypes) {
    if (item == event) return type;
  }
  return KivAnalyticsEventType::sdkStep;  // unreachable for a valid case
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
