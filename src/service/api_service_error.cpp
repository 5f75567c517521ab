#include "service/api_service_error.hpp"

#include "base/json.hpp"

namespace kiv {
namespace {

// Payload texts are written as JSON string literals so that quotes and line
// breaks inside them cannot break the one-line rendering.
std::string quoted(const std::string& text) { return json::dumpCompact(Json(text)); }

}  // namespace

std::string description(const APIServiceError& error) {
  struct Describe {
    std::string operator()(const APIServiceError::networkError& e) const {
      return "networkError(" + quoted(e.message) + ")";
    }
    std::string operator()(const APIServiceError::decodingError& e) const {
      return "decodingError(" + quoted(e.message) + ")";
    }
    std::string operator()(const APIServiceError::httpError& e) const {
      return "httpError(statusCode: " + std::to_string(e.statusCode) + ", message: " + quoted(e.message) + ")";
    }
    std::string operator()(const APIServiceError::noData&) const { return "noData"; }
    std::string operator()(const APIServiceError::invalidResponse&) const { return "invalidResponse"; }
  };
  return std::visit(Describe{}, error.value);
}

std::ostream& operator<<(std::ostream& out, const APIServiceError& error) { return out << description(error); }

}  // namespace kiv
