#include "telemetry/offline_queue_format.hpp"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

#include "base/text.hpp"
#include "base/unicode_text.hpp"

namespace kiv::queue_format {
namespace {

constexpr std::string_view kNamespacePrefix = "kiv_analytics_queue_";
constexpr std::string_view kEndpointKey = "endpoint";
constexpr std::string_view kJsonBodyKey = "jsonBody";
constexpr std::string_view kTimestampKey = "timestamp";

// Stored timestamps count seconds from 2001-01-01 00:00:00 UTC, the phone
// platform's reference date.
constexpr std::chrono::seconds kReferenceDateSinceEpoch{978307200};
// About 285 years either side of 1970: inside the range of the clock's
// nanosecond count. A stored time beyond it is not one this SDK wrote.
constexpr double kStoredSecondsRange = 9.0e9;

// One "_" for every code point outside [A-Za-z0-9_.-] (a byte outside a
// well-formed sequence counts as one, as a repaired text would).
std::string replacingUnsafeCharacters(std::string_view text) {
  std::string replaced;
  replaced.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    const bool safe =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '.' || c == '-';
    replaced += safe ? c : '_';
    at += std::max<std::size_t>(1, unicode::sequenceLengthAt(text, at));
  }
  return replaced;
}

// "t" and the hexadecimal BLAKE2b-128 digest of the token: the same token
// names the same queue in every process, and the name tells nothing of it.
std::string tokenDigestName(std::string_view token) {
  [[maybe_unused]] static const int ready = sodium_init();  // once per process; safe to race
  std::array<unsigned char, 16> digest{};
  crypto_generichash(digest.data(), digest.size(), reinterpret_cast<const unsigned char*>(token.data()), token.size(),
                     nullptr, 0);
  std::array<char, 2 * 16 + 1> hex{};
  sodium_bin2hex(hex.data(), hex.size(), digest.data(), digest.size());
  return "t" + std::string(hex.data());
}

}  // namespace

std::string storageNamespace(KivAnalyticsStage stage, std::string_view clientId, std::string_view mobileToken,
                             std::string_view sdkName) {
  const bool clientIsToken = !mobileToken.empty() && clientId == mobileToken;
  return std::string(kNamespacePrefix) + std::string(rawValue(stage)) + "_" +
         (clientIsToken ? tokenDigestName(mobileToken) : replacingUnsafeCharacters(clientId)) + "_" +
         replacingUnsafeCharacters(sdkName);
}

std::string storedForm(const QueuedEvent& event) {
  Json item = Json::object();
  item[kEndpointKey] = rawValue(event.endpoint);
  item[kJsonBodyKey] = base64Encoded(json::dumpCompact(event.jsonBody));
  // In floating point: the difference of two nanosecond counts may not fit one.
  item[kTimestampKey] = std::chrono::duration<double>(event.timestamp.time_since_epoch()).count() -
                        static_cast<double>(kReferenceDateSinceEpoch.count());
  return json::dumpCompact(item);
}

std::string joinedArray(const std::vector<std::string_view>& entries) {
  std::size_t length = 2;
  for (const auto entry : entries) length += entry.size() + 1;
  std::string array;
  array.reserve(length);
  array += '[';
  for (const auto entry : entries) {
    if (array.size() > 1) array += ',';
    array += entry;
  }
  array += ']';
  return array;
}

std::string encodeQueue(const std::vector<QueuedEvent>& queue) {
  std::vector<std::string> forms;
  forms.reserve(queue.size());
  for (const auto& event : queue) forms.push_back(storedForm(event));
  return joinedArray({forms.begin(), forms.end()});
}

std::optional<std::vector<QueuedEvent>> decodeQueue(std::string_view bytes) {
  const auto array = json::parse(bytes);
  if (!array || !array->is_array()) return std::nullopt;
  std::vector<QueuedEvent> queue;
  for (const auto& item : *array) {
    if (!item.is_object()) return std::nullopt;
    const auto endpointText = json::optionalString(item, kEndpointKey);
    const auto seconds = json::optionalDouble(item, kTimestampKey);
    const auto encoded = json::optionalString(item, kJsonBodyKey);
    if (!endpointText || !*endpointText || !seconds || !*seconds || !encoded || !*encoded) return std::nullopt;
    const auto endpoint = fromRawValue<KivAnalyticsEndpoint>(**endpointText);
    const double sinceEpochSeconds = **seconds + static_cast<double>(kReferenceDateSinceEpoch.count());
    if (!endpoint || !(std::abs(sinceEpochSeconds) <= kStoredSecondsRange)) return std::nullopt;
    const auto raw = base64Decoded(**encoded);
    if (!raw) return std::nullopt;
    Json body = Json::object();
    if (auto parsed = json::parse(*raw); parsed && parsed->is_object()) body = std::move(*parsed);
    const auto sinceEpoch =
        std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(sinceEpochSeconds));
    queue.push_back(QueuedEvent{*endpoint, std::move(body), TimePoint(sinceEpoch)});
  }
  return queue;
}

}  // namespace kiv::queue_format
