#include "sandbox/fault_rules.hpp"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

namespace kiv::sandbox {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kAllAnalytics = "analytics";
constexpr std::array kEndpoints{SandboxEndpoint::sessions, SandboxEndpoint::transactions,
                                SandboxEndpoint::trackAnalytics, SandboxEndpoint::identifyAnalytics,
                                SandboxEndpoint::crashlytics};
constexpr std::array<std::string_view, 8> kKeys{"endpoint", "personId", "times",     "delayMs",
                                                "status",   "body",     "malformed", "drop"};
// Long enough for any time-out a host would set, short enough that a typo
// does not park a connection for a day.
constexpr std::int64_t kMaxDelayMs = 600'000;

std::string endpointChoices() {
  std::string choices;
  for (auto endpoint : kEndpoints) choices += std::string(endpointName(endpoint)) + ", ";
  return choices + std::string(kAllAnalytics);
}

std::expected<std::optional<SandboxEndpoint>, std::string> parseEndpoint(const Json& value) {
  if (!value.is_string()) return std::unexpected("\"endpoint\" must be text");
  const auto name = value.get<std::string>();
  if (name == kAllAnalytics) return std::nullopt;
  for (auto endpoint : kEndpoints) {
    if (name == endpointName(endpoint)) return endpoint;
  }
  return std::unexpected("unknown endpoint \"" + name + "\"; expected one of " + endpointChoices());
}

std::expected<std::int64_t, std::string> integerIn(const Json& object, std::string_view key, std::int64_t low,
                                                   std::int64_t high) {
  const Json& value = object.at(std::string(key));
  if (!value.is_number_integer()) return std::unexpected("\"" + std::string(key) + "\" must be a whole number");
  const auto number = value.get<std::int64_t>();
  if (number < low || number > high) {
    return std::unexpected("\"" + std::string(key) + "\" must be between " + std::to_string(low) + " and " +
                           std::to_string(high));
  }
  return number;
}

std::expected<bool, std::string> flag(const Json& object, std::string_view key) {
  const auto found = object.find(std::string(key));
  if (found == object.end()) return false;
  if (!found->is_boolean()) return std::unexpected("\"" + std::string(key) + "\" must be true or false");
  return found->get<bool>();
}

}  // namespace

std::string_view endpointName(SandboxEndpoint endpoint) {
  switch (endpoint) {
    case SandboxEndpoint::sessions:
      return "sessions";
    case SandboxEndpoint::transactions:
      return "transactions";
    case SandboxEndpoint::trackAnalytics:
      return "track-analytics";
    case SandboxEndpoint::identifyAnalytics:
      return "identify-analytics";
    case SandboxEndpoint::crashlytics:
      return "crashlytics";
  }
  return "unknown";
}

bool FaultRule::targets(SandboxEndpoint candidate) const {
  if (endpoint) return *endpoint == candidate;
  return candidate == SandboxEndpoint::trackAnalytics || candidate == SandboxEndpoint::identifyAnalytics ||
         candidate == SandboxEndpoint::crashlytics;
}

std::expected<FaultRule, std::string> parseFaultRule(std::string_view json) {
  const auto object = Json::parse(json, nullptr, false);
  if (!object.is_object()) return std::unexpected("a fault rule must be a JSON object");
  for (const auto& [key, value] : object.items()) {
    if (std::ranges::find(kKeys, key) == kKeys.end()) return std::unexpected("unknown key \"" + key + "\"");
  }

  FaultRule rule;
  if (!object.contains("endpoint")) return std::unexpected("\"endpoint\" is required");
  auto endpoint = parseEndpoint(object["endpoint"]);
  if (!endpoint) return std::unexpected(endpoint.error());
  rule.endpoint = *endpoint;

  if (object.contains("personId")) {
    if (!object["personId"].is_string()) return std::unexpected("\"personId\" must be text");
    rule.personId = object["personId"].get<std::string>();
  }
  if (object.contains("times")) {
    auto times = integerIn(object, "times", 1, 1'000'000);
    if (!times) return std::unexpected(times.error());
    rule.times = *times;
  }
  if (object.contains("delayMs")) {
    auto delay = integerIn(object, "delayMs", 0, kMaxDelayMs);
    if (!delay) return std::unexpected(delay.error());
    rule.delayMs = *delay;
  }
  if (object.contains("status")) {
    auto status = integerIn(object, "status", 100, 599);
    if (!status) return std::unexpected(status.error());
    rule.status = static_cast<int>(*status);
  }
  if (object.contains("body")) {
    if (!object["body"].is_string()) return std::unexpected("\"body\" must be text (a JSON body is written as text)");
    rule.body = object["body"].get<std::string>();
  }
  auto malformed = flag(object, "malformed");
  if (!malformed) return std::unexpected(malformed.error());
  rule.malformed = *malformed;
  auto drop = flag(object, "drop");
  if (!drop) return std::unexpected(drop.error());
  rule.drop = *drop;

  if (rule.body && !rule.status) return std::unexpected("\"body\" needs a \"status\" to go with it");
  if (rule.drop && (rule.status || rule.malformed)) {
    return std::unexpected("\"drop\" sends no answer, so it cannot have a \"status\", \"body\" or \"malformed\"");
  }
  if (rule.malformed && rule.body) return std::unexpected("\"malformed\" writes its own body; leave out \"body\"");
  if (!rule.status && !rule.malformed && !rule.drop && rule.delayMs == 0) {
    return std::unexpected("the rule changes nothing: give \"status\", \"malformed\", \"drop\" or \"delayMs\"");
  }
  return rule;
}

std::string faultRuleJson(const FaultRule& rule) {
  nlohmann::ordered_json object;
  object["endpoint"] = rule.endpoint ? endpointName(*rule.endpoint) : kAllAnalytics;
  if (rule.personId) object["personId"] = *rule.personId;
  if (rule.times) object["times"] = *rule.times;
  if (rule.delayMs > 0) object["delayMs"] = rule.delayMs;
  if (rule.status) object["status"] = *rule.status;
  if (rule.body) object["body"] = *rule.body;
  if (rule.malformed) object["malformed"] = true;
  if (rule.drop) object["drop"] = true;
  return object.dump();
}

void FaultBook::add(FaultRule rule) {
  std::lock_guard lock(mutex_);
  rules_.push_back(std::move(rule));
}

std::size_t FaultBook::clear() {
  std::lock_guard lock(mutex_);
  return std::exchange(rules_, {}).size();
}

std::vector<FaultRule> FaultBook::rules() const {
  std::lock_guard lock(mutex_);
  return rules_;
}

std::optional<FaultRule> FaultBook::take(SandboxEndpoint endpoint, const std::optional<std::string>& personId) {
  std::lock_guard lock(mutex_);
  const auto found = std::ranges::find_if(rules_, [&](const FaultRule& rule) {
    return rule.targets(endpoint) && (!rule.personId || rule.personId == personId);
  });
  if (found == rules_.end()) return std::nullopt;
  FaultRule taken = *found;
  if (found->times && --*found->times == 0) rules_.erase(found);
  return taken;
}

}  // namespace kiv::sandbox
