#include "telemetry/analytics_envelope.hpp"

#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

#include "base/unicode_text.hpp"
#include "service/api_response_report.hpp"
#include "service/log_sanitizer.hpp"

namespace kiv::envelope {
namespace {

constexpr std::string_view kUserIdKey = "userId";
constexpr std::string_view kEventKey = "event";
constexpr std::string_view kEventTypeKey = "eventType";
constexpr std::string_view kRequestParamsKey = "requestParams";
constexpr std::string_view kRequestBodyKey = "requestBody";
constexpr std::string_view kStackTraceKey = "stackTrace";
constexpr std::string_view kSdkNameKey = "sdk_name";
constexpr std::string_view kSdkVersionKey = "sdk_version";
constexpr std::string_view kQueuedEventsKey = "queued_events";

void addSdkParameters(auto& params, const KivSDKInfo& sdk) {
  params[std::string(kSdkNameKey)] = sdk.name;
  params[std::string(kSdkVersionKey)] = sdk.version;
  params["sdkName"] = sdk.name;
  params["sdkVersion"] = sdk.version;
}

// Text-valued parameters, sanitised by the rules for texts, in key order.
Json textParams(const AnalyticsTextParams& params) {
  Json sanitized = Json::object();
  for (auto& [key, value] : sanitizeDictionary(params)) sanitized[key] = std::move(value);
  return sanitized;
}

// The parameters of bodies the client makes itself.
AnalyticsTextParams ownParams(const KivSDKInfo& sdk) {
  return {{std::string(kSdkNameKey), sdk.name}, {std::string(kSdkVersionKey), sdk.version}};
}

}  // namespace

std::string userId(const AnalyticsIdentity& identity) {
  if (identity.personId) {
    const auto person = unicode::trimWhiteSpaceAndNewlines(*identity.personId);
    if (!person.empty()) return std::string(person);
  }
  return identity.sessionId;
}

std::string timestampText(TimePoint time) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  gmtime_r(&whole, &parts);
  // Room for every field at its widest int, so that no compiler sees a cut.
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>((milliseconds - seconds).count()));
  return text.data();
}

Json properties(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, Json params,
                const std::optional<std::string>& requestBody) {
  Json base = Json::object();
  base["platform"] = rawValue(identity.platform);
  base["clientId"] = identity.clientId;
  base["personId"] = userId(identity);
  base["sessionId"] = identity.sessionId;
  base["timestamp"] = timestampText(moment.time);

  // Text-valued parameters arrive sanitised already; sanitising again is a
  // no-op for them.
  Json p = params.is_object() ? sanitizeDictionary(std::move(params)) : Json::object();
  p["mobileToken"] = identity.mobileToken;
  p["sdkInfoEnvironment"] = rawValue(identity.stage);
  if (!p.contains(kDeviceDataKey)) p[kDeviceDataKey] = moment.deviceData ? moment.deviceData() : std::string();
  if (!identity.entrypoint.empty()) p["entrypoint"] = identity.entrypoint;
  if (!identity.entrypointVersion.empty()) p["entrypointVersion"] = identity.entrypointVersion;
  if (moment.provider) p[kProviderKey] = *moment.provider;
  const auto lift = [&](std::string_view key) {
    const auto found = p.find(key);
    if (found == p.end()) return;
    base[key] = std::move(*found);
    p.erase(found);
  };
  lift(kAnalyticsResultKey);
  for (const auto key : kApiResponseKeys) lift(key);
  if (!p.empty()) base[kRequestParamsKey] = std::move(p);
  if (requestBody) base[kRequestBodyKey] = truncateBodyText(*requestBody);
  return sanitizeDictionary(std::move(base));
}

Json body(const AnalyticsIdentity& identity, std::string_view eventName, KivAnalyticsEventType eventType,
          Json properties) {
  Json body = Json::object();
  body[kUserIdKey] = userId(identity);
  body[kEventKey] = eventName;
  body[kEventTypeKey] = rawValue(eventType);
  body[kPropertiesKey] = std::move(properties);
  return body;
}

Json trackBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, const KivAnalyticsEvent& event,
               Json params, const std::optional<std::string>& requestBody) {
  if (!params.is_object()) params = Json::object();
  addSdkParameters(params, identity.sdk);
  return body(identity, event.name(), event.type(), properties(identity, moment, std::move(params), requestBody));
}

Json trackBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, const KivAnalyticsEvent& event,
               AnalyticsTextParams params, const std::optional<std::string>& requestBody) {
  addSdkParameters(params, identity.sdk);
  return body(identity, event.name(), event.type(), properties(identity, moment, textParams(params), requestBody));
}

Json crashBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, std::string_view stackTrace,
               std::optional<KivAnalyticsResult> result) {
  AnalyticsTextParams params = ownParams(identity.sdk);
  if (result) params.insert(resultParameter(*result));
  Json crashProperties = properties(identity, moment, textParams(params), std::nullopt);
  crashProperties[kStackTraceKey] = truncateBodyText(stackTrace);
  const auto& crash = fixedEventForm(KivAnalyticsFixedEvent::crash);
  return body(identity, rawValue(crash.name), crash.type, std::move(crashProperties));
}

Json recoveryNotice(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, std::size_t queued) {
  AnalyticsTextParams params = ownParams(identity.sdk);
  params.emplace(kQueuedEventsKey, std::to_string(queued));
  params.insert(resultParameter(KivAnalyticsResult::recovered));
  const auto& notice = fixedEventForm(KivAnalyticsFixedEvent::noConnection);
  return body(identity, rawValue(notice.name), notice.type,
              properties(identity, moment, textParams(params), std::nullopt));
}

Json resentBody(Json body) {
  if (!body.is_object()) body = Json::object();
  const auto found = body.find(kPropertiesKey);
  if (found != body.end() && found->is_object()) {
    (*found)[kResentKey] = true;
  } else {
    Json flag = Json::object();
    flag[kResentKey] = true;
    body[kPropertiesKey] = std::move(flag);
  }
  return body;
}

}  // namespace kiv::envelope
