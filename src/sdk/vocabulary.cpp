#include <string>

#include "kiv/environment.hpp"
#include "kiv/results.hpp"
#include "base/json.hpp"

namespace kiv {

std::string toString(KivEnvironment environment) {
  return environment == KivEnvironment::dev ? "dev" : environment == KivEnvironment::beta ? "beta" : "prod";
}

KivSDKError::KivSDKError(KivErrorType errorType, std::optional<std::string> description)
    : errorType_(errorType), description_(std::move(description)) {}

const char* KivSDKError::what() const noexcept {
  return description_ ? description_->c_str() : rawValue(errorType_).data();
}

KivSDKFailure::KivSDKFailure(std::optional<std::string> signedResponse, KivFailureType failureReason,
                             std::optional<std::string> description)
    : signedResponse_(std::move(signedResponse)), failureReason_(failureReason), description_(std::move(description)) {}

KivFaceLivenessLiteResult::KivFaceLivenessLiteResult(std::optional<std::string> signedResponse)
    : signedResponse_(std::move(signedResponse)) {}

std::string encodeJSON(const KivSDKError& error) {
  Json object = Json::object();
  object["errorType"] = rawValue(error.errorType());
  if (error.description()) object["description"] = *error.description();
  return json::dumpCompact(object);
}

std::string encodeJSON(const KivSDKFailure& failure) {
  Json object = Json::object();
  if (failure.signedResponse()) object["signedResponse"] = *failure.signedResponse();
  object["failureReason"] = rawValue(failure.failureReason());
  if (failure.description()) object["description"] = *failure.description();
  return json::dumpCompact(object);
}

std::string encodeJSON(KivErrorType type) { return json::dumpCompact(Json(rawValue(type))); }

std::string encodeJSON(KivFailureType type) { return json::dumpCompact(Json(rawValue(type))); }

}  // namespace kiv
