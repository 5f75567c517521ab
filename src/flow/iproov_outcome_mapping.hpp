// How the capture vendor's verdicts become the SDK's public vocabulary.
//
//   failureType("eyes_closed")   == KivFailureType::eyesClosed
//   failureType("EYES_CLOSED")   == KivFailureType::unknown      (exact match only)
//   errorType(IProovError(IProovError::Code::notSupported)) == KivErrorType::unsupportedDevice
//
// Nothing the vendor reports is dropped: an unknown code or error still maps
// to a value (unknown, serverException).
#pragma once

#include <string>
#include <string_view>

#include "kiv/error_types.hpp"
#include "kiv/platform/capture/status.hpp"

namespace kiv {

// What a failure carries when the vendor gave no reason, and an error when
// the vendor gave no description.
inline constexpr std::string_view kNoFailureReasonDescription = "Try Again";
inline constexpr std::string_view kNoErrorDescription = "IproovError";

// The failure type whose raw value is exactly `feedbackCode`; unknown when
// none is.
KivFailureType failureType(std::string_view feedbackCode);

struct CaptureFailure {
  KivFailureType type;
  std::string description;
};
// From the first reason only; unknown and kNoFailureReasonDescription
// without one.
CaptureFailure captureFailure(const FailureResult& result);

KivErrorType errorType(const IProovError& error);

struct CaptureError {
  KivErrorType type;
  std::string description;
};
// The error's errorDescription, or kNoErrorDescription without one.
CaptureError captureError(const IProovError& error);

}  // namespace kiv
