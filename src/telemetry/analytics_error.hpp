// The analytics client's errors. Its post throws them; they never reach the
// host: a post that failed for the network or the backend is queued, and the
// rest are swallowed by the client's callers.
#pragma once

#include <exception>
#include <optional>
#include <string>

namespace kiv {

class KivAnalyticsError : public std::exception {
 public:
  enum class Kind { network, unknown, notInitialized, invalidURL, encodingFailed };

  // The backend answered with a status outside 200-299; `body` is the answer
  // as UTF-8 text, absent when it was not.
  static KivAnalyticsError network(int status, std::optional<std::string> body);
  static KivAnalyticsError unknown(std::string message);
  static KivAnalyticsError notInitialized();
  static KivAnalyticsError invalidURL();
  static KivAnalyticsError encodingFailed();

  Kind kind() const { return kind_; }
  int status() const { return status_; }                            // network only, else 0
  const std::optional<std::string>& body() const { return body_; }  // network only
  // The text shown for the error: "Network error (status: 500) body: <nil>".
  const std::string& description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  KivAnalyticsError(Kind kind, std::string description) : kind_(kind), description_(std::move(description)) {}

  Kind kind_;
  int status_ = 0;
  std::optional<std::string> body_;
  std::string description_;
};

}  // namespace kiv
