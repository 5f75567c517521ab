// The records that describe how a run ended.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <exception>
#include <optional>
#include <string>

#include "kiv/error_types.hpp"

namespace kiv {

// An error that ended a run. It can be thrown and caught like any exception;
// what() gives the description, or the error type's raw value without one.
class KivSDKError : public std::exception {
 public:
  KivSDKError(KivErrorType errorType, std::optional<std::string> description);

  KivErrorType errorType() const noexcept { return errorType_; }
  const std::optional<std::string>& description() const noexcept { return description_; }
  const char* what() const noexcept override;

  friend bool operator==(const KivSDKError& a, const KivSDKError& b) {
    return a.errorType_ == b.errorType_ && a.description_ == b.description_;
  }

 private:
  KivErrorType errorType_;
  std::optional<std::string> description_;
};

// A capture that completed but was judged not live or not usable.
class KivSDKFailure {
 public:
  KivSDKFailure(std::optional<std::string> signedResponse, KivFailureType failureReason,
                std::optional<std::string> description);

  const std::optional<std::string>& signedResponse() const noexcept { return signedResponse_; }
  KivFailureType failureReason() const noexcept { return failureReason_; }
  const std::optional<std::string>& description() const noexcept { return description_; }

  friend bool operator==(const KivSDKFailure&, const KivSDKFailure&) = default;

 private:
  std::optional<std::string> signedResponse_;
  KivFailureType failureReason_;
  std::optional<std::string> description_;
};

// A passed attempt.
class KivFaceLivenessLiteResult {
 public:
  explicit KivFaceLivenessLiteResult(std::optional<std::string> signedResponse);

  const std::optional<std::string>& signedResponse() const noexcept { return signedResponse_; }

  friend bool operator==(const KivFaceLivenessLiteResult&, const KivFaceLivenessLiteResult&) = default;

 private:
  std::optional<std::string> signedResponse_;
};

// Compact JSON with the record's keys in field order; an absent optional field
// is left out (never null). Example: {"errorType":"networkException"}.
std::string encodeJSON(const KivSDKError& error);
// Example: {"failureReason":"eyes_closed","description":"Blink detected"}.
std::string encodeJSON(const KivSDKFailure& failure);
// A bare JSON string with the raw value, e.g. "cameraPermission".
std::string encodeJSON(KivErrorType type);
std::string encodeJSON(KivFailureType type);

}  // namespace kiv

#pragma GCC visibility pop
