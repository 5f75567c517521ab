#include "service/api_response_report.hpp"
#include "base/text.hpp"

#include <vector>

#include "base/timer.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

// Which backend call an endpoint belongs to, checked in this order.
constexpr std::string_view kTransactionsMarker = "bff/transactions";
constexpr std::string_view kSessionsMarker = "bff/sessions";

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

ApiResponseReport apiResponseReport(const ApiResponseFacts& facts) {
  ApiResponseReport report;
  auto& properties = report.properties;
  properties[std::string(kApiEndpointKey)] = facts.endpoint;
  properties[std::string(kResponseCodeKey)] = facts.statusCode ? std::to_string(*facts.statusCode) : std::string();
  properties[std::string(kResponseTimeKey)] = KivSDKTimer::shared().elapsed(facts.endpoint).value_or(std::string());
  std::string data;
  if (facts.transportError) {
    data = optionalDescription(*facts.transportError);
  } else if (facts.data) {
    data = encodeToJSONString(*facts.data).value_or(std::string());
  }
  properties[std::string(kResponseDataKey)] = std::move(data);
  if (facts.endpoint.find(kTransactionsMarker) != std::string::npos) {
    report.call = BackendCall::transaction;
  } else if (facts.endpoint.find(kSessionsMarker) != std::string::npos) {
    report.call = BackendCall::session;
  }
  return report;
}

}  // namespace kiv
