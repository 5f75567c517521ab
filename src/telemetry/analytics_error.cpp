#include "telemetry/analytics_error.hpp"

namespace kiv {
namespace {

constexpr const char* kNotInitialized = "KIV Analytics is not initialized.";
constexpr const char* kInvalidURL = "Invalid URL.";
constexpr const char* kEncodingFailed = "Failed to encode JSON body.";
constexpr const char* kMissingBody = "<nil>";

}  // namespace

KivAnalyticsError KivAnalyticsError::network(int status, std::optional<std::string> body) {
  KivAnalyticsError error(Kind::network, "Network error (status: " + std::to_string(status) +
                                             ") body: " + (body ? *body : std::string(kMissingBody)));
  error.status_ = status;
  error.body_ = std::move(body);
  return error;
}

KivAnalyticsError KivAnalyticsError::unknown(std::string message) {
  return KivAnalyticsError(Kind::unknown, std::move(message));
}

KivAnalyticsError KivAnalyticsError::notInitialized() {
  return KivAnalyticsError(Kind::notInitialized, kNotInitialized);
}

KivAnalyticsError KivAnalyticsError::invalidURL() { return KivAnalyticsError(Kind::invalidURL, kInvalidURL); }

KivAnalyticsError KivAnalyticsError::encodingFailed() {
  return KivAnalyticsError(Kind::encodingFailed, kEncodingFailed);
}

}  // namespace kiv
