// What the backend service reports to analytics about every answered request:
// one flat set of text properties, built the same way for every request kind
// and every outcome, so that the maker's dashboards can line them up.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

// The body bytes as the JSON text of a data value: a string literal holding
// the bytes in base64, with "/" escaped as "\/" the way the backend's other
// clients write it. Absent only when encoding fails (a console line says why).
std::optional<std::string> encodeToJSONString(std::string_view data);

// The outcome of one request as the transport gave it.
struct ApiResponseFacts {
  std::string endpoint{};                       // the request's absolute URL text
  std::optional<std::int64_t> statusCode{};     // none without an HTTP response
  std::optional<std::string> data{};            // the body bytes; none when there were none
  std::optional<std::string> transportError{};  // the error's description; none without error
};

using ApiResponseProperties = std::map<std::string, std::string>;

// The keys of the properties, in the order analytics lifts them to the top
// of an event.
inline constexpr std::string_view kApiEndpointKey = "apiEndpoint";
inline constexpr std::string_view kResponseCodeKey = "responseCode";
inline constexpr std::string_view kResponseTimeKey = "responseTime";
inline constexpr std::string_view kResponseDataKey = "responseData";
inline constexpr std::array<std::string_view, 4> kApiResponseKeys{kApiEndpointKey, kResponseCodeKey, kResponseTimeKey,
                                                                  kResponseDataKey};

// Which of the two backend calls an answer belongs to, read from its
// endpoint; analytics reports it as the event's result.
enum class BackendCall { session, transaction };

struct ApiResponseReport {
  ApiResponseProperties properties;  // every key of kApiResponseKeys
  std::optional<BackendCall> call;   // none for any other endpoint
};

// Reads the request timer named by the endpoint, which removes it.
ApiResponseReport apiResponseReport(const ApiResponseFacts& facts);

}  // namespace kiv
