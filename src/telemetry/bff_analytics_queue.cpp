// The offline queue of KivBFFAnalytics: bodies whose post failed, kept in
// memory and mirrored into the secure store, resent when the path monitor
// reports a usable network.
#include "base/text.hpp"

#include <algorithm>
#include <cmath>
#include <future>
#include <utility>

#include "base/unicode_text.hpp"
#include "kiv/platform/platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

constexpr std::string_view kEndpointKey = "endpoint";
constexpr std::string_view kJsonBodyKey = "jsonBody";
constexpr std::string_view kTimestampKey = "timestamp";
constexpr std::string_view kResentKey = "resent";
constexpr std::string_view kPropertiesKey = "properties";
constexpr std::string_view kQueuedEventsKey = "queued_events";

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

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

std::string KivBFFAnalytics::storedForm(const QueuedEvent& event) {
  Json item = Json::object();
  item[kEndpointKey] = rawValue(event.endpoint);
  item[kJsonBodyKey] = base64Encoded(json::dumpCompact(event.jsonBody));
  // In floating point: the difference of two nanosecond counts may not fit one.
  item[kTimestampKey] = std::chrono::duration<double>(event.timestamp.time_since_epoch()).count() -
                        static_cast<double>(kReferenceDateSinceEpoch.count());
  return json::dumpCompact(item);
}

std::string KivBFFAnalytics::joinedArray(const std::vector<std::string>& items) {
  std::size_t length = 2;
  for (const auto& item : items) length += item.size() + 1;
  std::string array;
  array.reserve(length);
  array += '[';
  for (const auto& item : items) {
    if (array.size() > 1) array += ',';
    array += item;
  }
  array += ']';
  return array;
}

std::string KivBFFAnalytics::encodeQueue(const std::vector<QueuedEvent>& queue) {
  std::vector<std::string> items;
  items.reserve(queue.size());
  for (const auto& event : queue) items.push_back(storedForm(event));
  return joinedArray(items);
}

std::optional<std::vector<KivBFFAnalytics::QueuedEvent>> KivBFFAnalytics::decodeQueue(std::string_view bytes) {
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
    // Bytes that are not a JSON object decode as an empty body.
    Json body = Json::object();
    if (auto parsed = json::parse(*raw); parsed && parsed->is_object()) body = std::move(*parsed);
    const auto sinceEpoch =
        std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(sinceEpochSeconds));
    queue.push_back(QueuedEvent{*endpoint, std::move(body), TimePoint(sinceEpoch)});
  }
  return queue;
}

std::string KivBFFAnalytics::storageNamespace() const {
  return "kiv_analytics_queue_" + std::string(rawValue(stage_)) + "_" + replacingUnsafeCharacters(clientId_) + "_" +
         replacingUnsafeCharacters(sdk_.name);
}

std::vector<KivBFFAnalytics::QueuedEvent> KivBFFAnalytics::queuedEvents() const {
  std::lock_guard lock(queueLock_);
  return queue_;
}

int KivBFFAnalytics::retryAttempts() const {
  std::lock_guard lock(queueLock_);
  return retryAttempts_;
}

void KivBFFAnalytics::loadQueue() {
  std::lock_guard lock(queueLock_);
  const std::string service = storageNamespace();
  if (const auto session = keyChainManager_->readData(service, queueSessionKey)) {
    const std::string text(session->begin(), session->end());
    if (unicode::isValidUtf8(text)) queuedSessionId_ = text;
    storedSessionId_ = text;
  }
  if (const auto stored = keyChainManager_->readData(service, queueKey)) {
    if (auto queue = decodeQueue(std::string_view(reinterpret_cast<const char*>(stored->data()), stored->size()))) {
      queue_ = std::move(*queue);
      storedForms_.clear();
      for (const auto& event : queue_) storedForms_.push_back(storedForm(event));
    }
  }
}

void KivBFFAnalytics::startPathMonitor() {
  if (!pathMonitor_) return;
  pathMonitor_->start(monitorQueue_, [weak = weak_from_this()](NetworkPathStatus status) {
    auto self = weak.lock();
    if (!self || status != NetworkPathStatus::satisfied) return;
    self->flushQueue();
  });
}

void KivBFFAnalytics::enqueue(KivAnalyticsEndpoint endpoint, const Json& body) {
  std::lock_guard lock(queueLock_);
  if (retired_) return;  // the store belongs to the client that replaced this one
  if (queue_.empty()) {
    queuedSessionId_ = sessionId_;
  } else if (queuedSessionId_ && *queuedSessionId_ != sessionId_) {
    return;  // the queue holds another session's events; they are never mixed
  }
  queue_.push_back(QueuedEvent{endpoint, body, platform()->clock->now()});
  storedForms_.push_back(storedForm(queue_.back()));
  persistQueue();
}

void KivBFFAnalytics::persistQueue() {
  std::lock_guard lock(queueLock_);
  if (retired_) return;
  try {
    const std::string service = storageNamespace();
    keyChainManager_->save(service, queueKey, bytesOf(joinedArray(storedForms_)), true);
    // The session item changes only when the queue empties or starts anew;
    // rewriting the same text would cost one more synced commit per enqueue.
    const std::string session = queuedSessionId_.value_or("");
    if (storedSessionId_ != session) {
      keyChainManager_->save(service, queueSessionKey, bytesOf(session), true);
      storedSessionId_ = session;
    }
  } catch (const std::exception& error) {
    // The events stay in memory for this process.
    debug(error.what());
  }
}

struct KivBFFAnalytics::Flush {
  std::vector<QueuedEvent> snapshot;
  std::size_t delivered = 0;  // snapshot entries delivered and not yet removed
  std::promise<void> finished;
};

void KivBFFAnalytics::retire() {
  {
    std::lock_guard lock(queueLock_);
    retired_ = true;
  }
  if (pathMonitor_) pathMonitor_->cancel();
}

void KivBFFAnalytics::handOverTo(const std::shared_ptr<KivBFFAnalytics>& next) {
  {
    // Under this client's lock the stored queue is its queue, and nothing
    // this client does afterwards reaches the store.
    std::lock_guard lock(queueLock_);
    retired_ = true;
    next->loadQueue();
    if (isValidating_ || awaitingPredecessor_) {
      // What the flush under way delivers is still in the loaded queue.
      successor_ = next;
      std::lock_guard nextLock(next->queueLock_);
      next->awaitingPredecessor_ = true;
    }
  }
  if (pathMonitor_) pathMonitor_->cancel();
}

void KivBFFAnalytics::takeOver(std::size_t delivered) {
  std::shared_ptr<KivBFFAnalytics> successor;
  bool flushNow = false;
  {
    std::lock_guard lock(queueLock_);
    // The flush's snapshot was a prefix of the queue this client loaded, and
    // nothing has removed entries from its front since.
    if (delivered >= 1 && delivered <= queue_.size()) {
      queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(delivered));
      storedForms_.erase(storedForms_.begin(), storedForms_.begin() + static_cast<std::ptrdiff_t>(delivered));
      if (queue_.empty()) queuedSessionId_.reset();
      persistQueue();
    }
    if (retired_) {
      successor = std::exchange(successor_, {}).lock();
    } else {
      awaitingPredecessor_ = false;
      // The path was usable at some report while waiting; a flush attempt
      // tells whether it still is.
      flushNow = std::exchange(satisfiedWhileAwaiting_, false);
    }
  }
  if (successor) return successor->takeOver(delivered);
  if (flushNow) {
    monitorQueue_->post([weak = weak_from_this()] {
      if (auto self = weak.lock()) self->flushQueue();
    });
  }
}

std::shared_future<void> KivBFFAnalytics::flushFinished() const {
  std::lock_guard lock(queueLock_);
  return flushFinished_;
}

void KivBFFAnalytics::flushQueue() {
  auto flush = std::make_shared<Flush>();
  {
    std::lock_guard lock(queueLock_);
    if (retired_) return;
    if (awaitingPredecessor_) {
      satisfiedWhileAwaiting_ = true;
      return;
    }
    if (queue_.empty() || isValidating_ || retryAttempts_ >= maxQueueRetries) return;
    isValidating_ = true;
    flushFinished_ = flush->finished.get_future().share();
  }
  platform()->taskPool->post([weak = weak_from_this(), flush] {
    if (auto self = weak.lock()) return self->postRecoveryNotice(flush);
    flush->finished.set_value();
  });
}

void KivBFFAnalytics::finish(Flush& flush) {
  std::shared_ptr<KivBFFAnalytics> successor;
  {
    std::lock_guard lock(queueLock_);
    isValidating_ = false;
    if (retired_) successor = std::exchange(successor_, {}).lock();
  }
  // Told before the flush counts as finished, so that whoever waits for it
  // finds the successor's queue settled.
  if (successor) successor->takeOver(flush.delivered);
  flush.finished.set_value();
}

void KivBFFAnalytics::postRecoveryNotice(std::shared_ptr<Flush> flush) {
  std::size_t queued = 0;
  {
    std::lock_guard lock(queueLock_);
    if (retired_) return finish(*flush);
    queued = queue_.size();
  }
  TextParams params{{"sdk_name", sdk_.name},
                    {"sdk_version", sdk_.version},
                    {std::string(kQueuedEventsKey), std::to_string(queued)},
                    {"result", std::string(rawValue(KivAnalyticsResult::recovered))}};
  const Json notice = makeBody(rawValue(KivAnalyticsFixedEvent::noConnection), KivAnalyticsEventType::sdkError,
                               makeProperties(params, std::nullopt));
  post(notice, KivAnalyticsEndpoint::trackAnalytics, [self = shared_from_this(), flush](std::exception_ptr error) {
    if (error) {
      {
        std::lock_guard lock(self->queueLock_);
        ++self->retryAttempts_;
      }
      return self->finish(*flush);
    }
    {
      // The live queue may grow during the flush; only the snapshot is sent.
      std::lock_guard lock(self->queueLock_);
      flush->snapshot = self->queue_;
    }
    if (flush->snapshot.empty()) {
      self->settle(*flush, false);
      return self->finish(*flush);
    }
    // Bodies are built on the pool, not on the session's thread.
    platform()->taskPool->post([self, flush] { self->resend(flush, 0); });
  });
}

void KivBFFAnalytics::resend(std::shared_ptr<Flush> flush, std::size_t index) {
  flush->delivered = index;
  {
    std::lock_guard lock(queueLock_);
    if (retired_) return finish(*flush);
  }
  if (index == flush->snapshot.size()) {
    settle(*flush, false);
    return finish(*flush);
  }
  const QueuedEvent& entry = flush->snapshot[index];
  Json body = entry.jsonBody;
  if (body.is_object() && body.contains(kPropertiesKey) && body[kPropertiesKey].is_object()) {
    body[kPropertiesKey][kResentKey] = true;
  } else {
    Json properties = Json::object();
    properties[kResentKey] = true;
    body[kPropertiesKey] = std::move(properties);
  }
  post(body, entry.endpoint, [self = shared_from_this(), flush, index](std::exception_ptr error) {
    if (error) {
      self->settle(*flush, true);
      return self->finish(*flush);
    }
    platform()->taskPool->post([self, flush, index] { self->resend(flush, index + 1); });
  });
}

void KivBFFAnalytics::settle(Flush& flush, bool failed) {
  std::lock_guard lock(queueLock_);
  if (retired_) return;  // the successor removes them
  const std::size_t delivered = std::exchange(flush.delivered, 0);
  if (delivered >= 1 && delivered <= queue_.size()) {
    queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(delivered));
    storedForms_.erase(storedForms_.begin(), storedForms_.begin() + static_cast<std::ptrdiff_t>(delivered));
  }
  if (queue_.empty()) queuedSessionId_.reset();
  if (failed && !queue_.empty()) {
    ++retryAttempts_;
  } else {
    retryAttempts_ = 0;
  }
  persistQueue();
}

}  // namespace kiv
