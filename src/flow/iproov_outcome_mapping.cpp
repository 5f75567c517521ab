#include "flow/iproov_outcome_mapping.hpp"

namespace kiv {

KivFailureType failureType(std::string_view feedbackCode) {
  return fromRawValue<KivFailureType>(feedbackCode).value_or(KivFailureType::unknown);
}

CaptureFailure captureFailure(const FailureResult& result) {
  if (result.reasons.empty()) return {KivFailureType::unknown, std::string(kNoFailureReasonDescription)};
  const auto& first = result.reasons.front();
  return {failureType(first.feedbackCode), first.localizedDescription};
}

KivErrorType errorType(const IProovError& error) {
  using Code = IProovError::Code;
  switch (error.code()) {
    case Code::network:
      return KivErrorType::networkException;
    case Code::server:
      return KivErrorType::serverException;
    case Code::unexpected:
      return KivErrorType::unexpectedErrorException;
    case Code::captureAlreadyActive:
      return KivErrorType::captureAlreadyActiveException;
    case Code::cameraPermissionDenied:
      return KivErrorType::cameraPermission;
    case Code::userTimeout:
      return KivErrorType::userTimeoutException;
    case Code::notSupported:
      return KivErrorType::unsupportedDevice;
    case Code::invalidOptions:
    case Code::cameraUnavailable:
      break;
  }
  // Whatever else the vendor reports is treated as a server-side problem.
  return KivErrorType::serverException;
}

CaptureError captureError(const IProovError& error) {
  return {errorType(error), error.errorDescription().value_or(std::string(kNoErrorDescription))};
}

}  // namespace kiv
