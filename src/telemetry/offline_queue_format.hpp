// How the offline analytics queue is kept in the secure store, as pure
// functions: the name of the store service that holds it, and the bytes of
// its one item.
//
//   const std::string service = queue_format::storageNamespace(stage, clientId, token, sdk.name);
//   store.save(service, queue_format::queueKey, asBytes(queue_format::encodeQueue(queue)), true);
//
// The item is a JSON array with one object per queued body, oldest first:
// {"endpoint": raw endpoint, "jsonBody": base64 of the compact body,
// "timestamp": seconds since 2001-01-01 00:00:00 UTC}. The format outlives
// the SDK's versions: a queue left by one is resent by the next.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.hpp"
#include "kiv/platform/clock.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {

// One body that could not be posted, waiting for the network.
struct QueuedEvent {
  KivAnalyticsEndpoint endpoint;
  Json jsonBody;  // an object: the complete body as it would have been posted
  TimePoint timestamp;
};

namespace queue_format {

// The accounts of the two items under the storage namespace: the queue, and
// the analytics session whose events it holds.
inline constexpr std::string_view queueKey = "kiv_analytics_queue";
inline constexpr std::string_view queueSessionKey = "kiv_analytics_queue_session";

// "kiv_analytics_queue_<stage>_<client>_<sdk>", with every character outside
// [A-Za-z0-9_.-] of the client id and the SDK name replaced by "_", so that
// queues of different stages, clients and SDKs never mix. Service names are
// stored in clear, so a client id that is the mobile token itself (a token
// without an issuer) is never written: "t" and 32 hexadecimal digits of a
// digest of the token stand in for it.
std::string storageNamespace(KivAnalyticsStage stage, std::string_view clientId, std::string_view mobileToken,
                             std::string_view sdkName);

// One entry of the stored array, and the array around such entries: the
// queue is rewritten whole, but no entry need be encoded twice.
std::string storedForm(const QueuedEvent& event);
std::string joinedArray(const std::vector<std::string_view>& entries);

std::string encodeQueue(const std::vector<QueuedEvent>& queue);

// Absent when the text is not such an array, or an entry lacks a known
// endpoint, base64 body bytes or a time the clock can hold. Body bytes that
// are not a JSON object decode as an empty body.
std::optional<std::vector<QueuedEvent>> decodeQueue(std::string_view bytes);

}  // namespace queue_format
}  // namespace kiv
