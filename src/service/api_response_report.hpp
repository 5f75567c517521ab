// What the backend service reports to analytics about every answered request:
// one flat set of text properties, built the same way for every request kind
// and every outcome, so that the maker's dashboards can line them up.
#pragma once

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

// "apiEndpoint", "responseCode", "responseTime", "responseData" and, for the
// two backend paths, "result". Reads the request timer named by the endpoint,
// which removes it.
ApiResponseProperties apiResponseProperties(const ApiResponseFacts& facts);

}  // namespace kiv
