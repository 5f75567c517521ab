// The bodies the analytics client posts, as pure functions of what they are
// built from: the client's identity, the moment, the event and the caller's
// parameters. No clock, device or network is read here.
//
//   const AnalyticsIdentity identity{.sessionId = "s-1", .clientId = "acme", .mobileToken = token, .sdk = sdk};
//   Json body = envelope::trackBody(identity, {.time = now, .deviceData = deviceText}, event,
//                                   Json{{"result", "granted"}}, std::nullopt);
//
// Every body has four keys: userId, event, eventType and properties. The
// properties start with the sender (platform, clientId, personId, sessionId,
// timestamp); then come the caller's result and API-response entries, lifted
// out of the parameters; the other parameters, enriched with the token, the
// stage and the device, go under requestParams. Every text is bounded by the
// telemetry sanitiser.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/json.hpp"
#include "kiv/platform/clock.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {

// Who sends: fixed when the client is configured.
struct AnalyticsIdentity {
  KivAnalyticsPlatform platform = KivAnalyticsPlatform::nativeIOS;
  KivAnalyticsStage stage = KivAnalyticsStage::prod;
  std::string sessionId{};
  std::string clientId{};
  std::string mobileToken{};
  std::optional<std::string> personId{};
  KivSDKInfo sdk{};
  std::string entrypoint{};         // empty: not sent
  std::string entrypointVersion{};  // empty: not sent
};

// What may differ from one body to the next.
struct AnalyticsMoment {
  TimePoint time{};
  std::optional<std::string> provider{};
  // The device context text; asked only when the parameters carry none.
  std::function<std::string()> deviceData{};
};

namespace envelope {

// Body keys a resend reads.
inline constexpr std::string_view kPropertiesKey = "properties";
inline constexpr std::string_view kResentKey = "resent";
// Parameters that callers may send too: the envelope sets the provider
// over theirs and the device context only where they gave none.
inline constexpr std::string_view kProviderKey = "provider";
inline constexpr std::string_view kDeviceDataKey = "deviceData";

// The trimmed person id, or the session id when that is absent or blank.
std::string userId(const AnalyticsIdentity& identity);

// "2025-01-31T12:34:56.789Z": UTC, milliseconds.
std::string timestampText(TimePoint time);

// The properties object around `params` (an object; anything else counts as
// none) and the optional request body.
Json properties(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, Json params,
                const std::optional<std::string>& requestBody);

// The four-key body.
Json body(const AnalyticsIdentity& identity, std::string_view eventName, KivAnalyticsEventType eventType,
          Json properties);

// A track body: the parameters get the SDK's name and version (over the
// caller's values of those keys) before the properties are built.
Json trackBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, const KivAnalyticsEvent& event,
               Json params, const std::optional<std::string>& requestBody);

// The same with text-valued parameters, sanitised by the rules for texts.
Json trackBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, const KivAnalyticsEvent& event,
               AnalyticsTextParams params, const std::optional<std::string>& requestBody);

// A crash body: the SDK's name and version and the result, when given, as
// parameters; the bounded stack trace in the properties.
Json crashBody(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, std::string_view stackTrace,
               std::optional<KivAnalyticsResult> result);

// The notice posted before queued bodies are resent: no_connection,
// sdk_error, with the queue's length and the result "recovered".
Json recoveryNotice(const AnalyticsIdentity& identity, const AnalyticsMoment& moment, std::size_t queued);

// `body` as resent from the offline queue: `resent` true inside its
// properties, which become an object holding only that flag when they are
// not an object.
Json resentBody(Json body);

}  // namespace envelope
}  // namespace kiv
