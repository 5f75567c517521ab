#include "service/api_response_report.hpp"
#include "base/text.hpp"

#include <vector>

#include "base/timer.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

constexpr std::string_view kApiEndpoint = "apiEndpoint";
constexpr std::string_view kResponseCode = "responseCode";
constexpr std::string_view kResponseTime = "responseTime";
constexpr std::string_view kResponseData = "responseData";
constexpr std::string_view kResult = "result";

// Which backend call an endpoint belongs to, checked in this order.
constexpr std::string_view kTransactionsMarker = "bff/transactions";
constexpr std::string_view kTransactionResult = "transaction";
constexpr std::string_view kSessionsMarker = "bff/sessions";
constexpr std::string_view kSessionResult = "session";

// How the transport error reads: the description of an optional error.
std::string optionalDescription(const std::string& description) { return "Optional(" + description + ")"; }

}  // namespace

std::optional<std::string> encodeToJSONString(std::string_view data) {
  std::string text = "\"";
  for (const char c : base64Encoded(data)) {
    if (c == '/') text += '\\';
    text += c;
  }
  text += '"';
  return text;
}

ApiResponseProperties apiResponseProperties(const ApiResponseFacts& facts) {
  ApiResponseProperties properties;
  properties[std::string(kApiEndpoint)] = facts.endpoint;
  properties[std::string(kResponseCode)] = facts.statusCode ? std::to_string(*facts.statusCode) : std::string();
  properties[std::string(kResponseTime)] = KivSDKTimer::shared().elapsed(facts.endpoint).value_or(std::string());
  std::string data;
  if (facts.transportError) {
    data = optionalDescription(*facts.transportError);
  } else if (facts.data) {
    data = encodeToJSONString(*facts.data).value_or(std::string());
  }
  properties[std::string(kResponseData)] = std::move(data);
  if (facts.endpoint.find(kTransactionsMarker) != std::string::npos) {
    properties[std::string(kResult)] = kTransactionResult;
  } else if (facts.endpoint.find(kSessionsMarker) != std::string::npos) {
    properties[std::string(kResult)] = kSessionResult;
  }
  return properties;
}

}  // namespace kiv
