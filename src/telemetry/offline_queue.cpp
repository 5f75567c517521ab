#include "telemetry/offline_queue.hpp"

#include <utility>

#include "base/unicode_text.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/console/debug_line.hpp"
#include "telemetry/analytics_envelope.hpp"

namespace kiv {
namespace {

constexpr std::string_view kMonitorQueueLabel = "kiv.analytics.pathmonitor";
constexpr std::string_view kStoreQueueLabel = "kiv.analytics.store";

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::shared_future<void> readyFuture() {
  std::promise<void> ready;
  ready.set_value();
  return ready.get_future().share();
}

}  // namespace

struct KivAnalyticsOfflineQueue::Flush {
  std::shared_ptr<Sender> sender;  // kept for the flush's length
  std::vector<QueuedEvent> snapshot;
  std::size_t delivered = 0;  // snapshot entries delivered and not yet removed
  std::promise<void> finished;
};

std::shared_ptr<KivAnalyticsOfflineQueue> KivAnalyticsOfflineQueue::make(
    std::string storageNamespace, std::string sessionId, std::shared_ptr<KeyChainManagerProtocol> keyChainManager) {
  return std::shared_ptr<KivAnalyticsOfflineQueue>(
      new KivAnalyticsOfflineQueue(std::move(storageNamespace), std::move(sessionId), std::move(keyChainManager)));
}

KivAnalyticsOfflineQueue::KivAnalyticsOfflineQueue(std::string storageNamespace, std::string sessionId,
                                                   std::shared_ptr<KeyChainManagerProtocol> keyChainManager)
    : storageNamespace_(std::move(storageNamespace)),
      sessionId_(std::move(sessionId)),
      keyChainManager_(std::move(keyChainManager)),
      flushFinished_(readyFuture()) {
  const auto services = platform();
  monitorQueue_ = services->taskPool->makeSerialQueue(std::string(kMonitorQueueLabel));
  storeQueue_ = services->taskPool->makeSerialQueue(std::string(kStoreQueueLabel));
  if (services->pathMonitor) pathMonitor_ = services->pathMonitor->makeMonitor();
}

KivAnalyticsOfflineQueue::~KivAnalyticsOfflineQueue() {
  if (pathMonitor_) pathMonitor_->cancel();
  // Released before a flush it had started ran: nothing was delivered.
  if (auto successor = successor_.lock()) successor->takeOver(0, {});
}

void KivAnalyticsOfflineQueue::setSender(std::weak_ptr<Sender> sender) {
  std::lock_guard lock(queueLock_);
  sender_ = std::move(sender);
}

std::vector<QueuedEvent> KivAnalyticsOfflineQueue::queuedEvents() const {
  std::lock_guard lock(queueLock_);
  return queue_;
}

int KivAnalyticsOfflineQueue::retryAttempts() const {
  std::lock_guard lock(queueLock_);
  return retryAttempts_;
}

std::shared_future<void> KivAnalyticsOfflineQueue::flushFinished() const {
  std::lock_guard lock(queueLock_);
  return flushFinished_;
}

void KivAnalyticsOfflineQueue::loadQueue() {
  std::lock_guard lock(queueLock_);
  if (const auto session = keyChainManager_->readData(storageNamespace_, queue_format::queueSessionKey)) {
    const std::string text(session->begin(), session->end());
    if (unicode::isValidUtf8(text)) queuedSessionId_ = text;
    storedSessionId_ = text;
  }
  if (const auto stored = keyChainManager_->readData(storageNamespace_, queue_format::queueKey)) {
    const std::string_view bytes(reinterpret_cast<const char*>(stored->data()), stored->size());
    if (auto queue = queue_format::decodeQueue(bytes)) {
      queue_ = std::move(*queue);
      storedForms_.clear();
      for (const auto& event : queue_) {
        storedForms_.push_back(std::make_shared<const std::string>(queue_format::storedForm(event)));
      }
    }
  }
}

void KivAnalyticsOfflineQueue::startPathMonitor() {
  if (!pathMonitor_) return;
  pathMonitor_->start(monitorQueue_, [weak = weak_from_this()](NetworkPathStatus status) {
    auto self = weak.lock();
    if (!self || status != NetworkPathStatus::satisfied) return;
    self->flushQueue();
  });
}

void KivAnalyticsOfflineQueue::stopPathMonitor() {
  if (pathMonitor_) pathMonitor_->cancel();
}

void KivAnalyticsOfflineQueue::enqueue(KivAnalyticsEndpoint endpoint, Json body, Done stored) {
  QueuedEvent event{endpoint, std::move(body), platform()->clock->now()};
  auto form = std::make_shared<const std::string>(queue_format::storedForm(event));
  {
    std::lock_guard lock(queueLock_);
    const bool otherSession = !queue_.empty() && queuedSessionId_ && *queuedSessionId_ != sessionId_;
    // A handed-over queue's store belongs to its successor; another session's
    // events are never mixed with this one's.
    if (!retired_ && !otherSession) {
      if (queue_.empty()) queuedSessionId_ = sessionId_;
      queue_.push_back(std::move(event));
      storedForms_.push_back(std::move(form));
      return persistQueue(std::move(stored));
    }
  }
  if (stored) stored();
}

void KivAnalyticsOfflineQueue::persistQueue(Done then) {
  std::lock_guard lock(queueLock_);
  dirty_ = true;
  if (then) waitingForWrite_.push_back(std::move(then));
  if (std::exchange(writeScheduled_, true)) return;
  storeQueue_->post([self = shared_from_this()] { self->writeStoredQueue(); });
}

void KivAnalyticsOfflineQueue::writeStoredQueue() {
  std::vector<Done> written;
  {
    std::lock_guard write(writeMutex_);
    std::vector<std::shared_ptr<const std::string>> forms;
    std::string session;
    bool due = false;
    {
      std::lock_guard lock(queueLock_);
      writeScheduled_ = false;
      written = std::exchange(waitingForWrite_, {});
      // Once handed over, the store is the successor's: the last write was
      // made then.
      due = std::exchange(dirty_, false) && !retired_;
      if (due) {
        forms = storedForms_;
        session = queuedSessionId_.value_or("");
      }
    }
    if (due) writeLocked(forms, session);
  }
  for (auto& then : written) then();
}

void KivAnalyticsOfflineQueue::writeLocked(const std::vector<std::shared_ptr<const std::string>>& forms,
                                           const std::string& session) {
  std::vector<std::string_view> entries;
  entries.reserve(forms.size());
  for (const auto& form : forms) entries.emplace_back(*form);
  try {
    keyChainManager_->save(storageNamespace_, queue_format::queueKey, bytesOf(queue_format::joinedArray(entries)),
                           true);
    // The session item changes only when the queue empties or starts anew;
    // rewriting the same text would cost one more synced commit.
    std::unique_lock lock(queueLock_);
    if (storedSessionId_ == session) return;
    lock.unlock();
    keyChainManager_->save(storageNamespace_, queue_format::queueSessionKey, bytesOf(session), true);
    lock.lock();
    storedSessionId_ = session;
  } catch (const std::exception& error) {
    // The events stay in memory for this process.
    printDebugLine(error.what());
  }
}

void KivAnalyticsOfflineQueue::handOverTo(const std::shared_ptr<KivAnalyticsOfflineQueue>& next) {
  {
    std::lock_guard write(writeMutex_);
    // Under this queue's lock the stored queue is its queue: what it holds
    // is written before `next` loads it, and nothing this queue does
    // afterwards reaches the store.
    std::lock_guard lock(queueLock_);
    if (std::exchange(dirty_, false)) writeLocked(storedForms_, queuedSessionId_.value_or(""));
    retired_ = true;
    next->loadQueue();
    if (isValidating_ || awaitingPredecessor_) {
      // What the flush under way delivers is still in the loaded queue.
      successor_ = next;
      std::lock_guard nextLock(next->queueLock_);
      next->awaitingPredecessor_ = true;
    }
  }
  stopPathMonitor();
}

void KivAnalyticsOfflineQueue::removeFrontLocked(std::size_t count) {
  if (count < 1 || count > queue_.size()) return;
  queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(count));
  storedForms_.erase(storedForms_.begin(), storedForms_.begin() + static_cast<std::ptrdiff_t>(count));
}

void KivAnalyticsOfflineQueue::takeOver(std::size_t delivered, Done then) {
  std::shared_ptr<KivAnalyticsOfflineQueue> successor;
  bool flushNow = false;
  bool persist = false;
  {
    std::lock_guard lock(queueLock_);
    // The flush's snapshot was a prefix of the queue this one loaded, and
    // nothing has removed entries from its front since.
    if (delivered >= 1 && delivered <= queue_.size()) {
      removeFrontLocked(delivered);
      if (queue_.empty()) queuedSessionId_.reset();
      persist = true;
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
  if (successor) return successor->takeOver(delivered, std::move(then));
  if (flushNow) {
    monitorQueue_->post([weak = weak_from_this()] {
      if (auto self = weak.lock()) self->flushQueue();
    });
  }
  if (persist) return persistQueue(std::move(then));
  if (then) then();
}

void KivAnalyticsOfflineQueue::flushQueue() {
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
    auto self = weak.lock();
    if (!self) return flush->finished.set_value();
    {
      std::lock_guard lock(self->queueLock_);
      flush->sender = self->sender_.lock();
    }
    if (!flush->sender) return self->finish(flush);  // the client is gone
    self->postRecoveryNotice(flush);
  });
}

void KivAnalyticsOfflineQueue::finish(std::shared_ptr<Flush> flush) {
  std::shared_ptr<KivAnalyticsOfflineQueue> successor;
  {
    std::lock_guard lock(queueLock_);
    isValidating_ = false;
    if (retired_) successor = std::exchange(successor_, {}).lock();
  }
  // The flush counts as finished once the successor's queue is settled.
  if (successor) return successor->takeOver(flush->delivered, [flush] { flush->finished.set_value(); });
  flush->finished.set_value();
}

void KivAnalyticsOfflineQueue::postRecoveryNotice(std::shared_ptr<Flush> flush) {
  std::size_t queued = 0;
  {
    std::lock_guard lock(queueLock_);
    if (retired_) return finish(flush);
    queued = queue_.size();
  }
  flush->sender->post(flush->sender->recoveryNotice(queued), KivAnalyticsEndpoint::trackAnalytics,
                      [self = shared_from_this(), flush](std::exception_ptr error) {
                        if (error) {
                          {
                            std::lock_guard lock(self->queueLock_);
                            ++self->retryAttempts_;
                          }
                          return self->finish(flush);
                        }
                        {
                          // The live queue may grow during the flush; only the
                          // snapshot is sent.
                          std::lock_guard lock(self->queueLock_);
                          flush->snapshot = self->queue_;
                        }
                        if (flush->snapshot.empty()) return self->settle(flush, false);
                        // Bodies are built on the pool, not on the session's thread.
                        platform()->taskPool->post([self, flush] { self->resend(flush, 0); });
                      });
}

void KivAnalyticsOfflineQueue::resend(std::shared_ptr<Flush> flush, std::size_t index) {
  flush->delivered = index;
  {
    std::lock_guard lock(queueLock_);
    if (retired_) return finish(flush);
  }
  if (index == flush->snapshot.size()) return settle(flush, false);
  const QueuedEvent& entry = flush->snapshot[index];
  flush->sender->post(envelope::resentBody(entry.jsonBody), entry.endpoint,
                      [self = shared_from_this(), flush, index](std::exception_ptr error) {
                        if (error) return self->settle(flush, true);
                        platform()->taskPool->post([self, flush, index] { self->resend(flush, index + 1); });
                      });
}

void KivAnalyticsOfflineQueue::settle(std::shared_ptr<Flush> flush, bool failed) {
  {
    std::lock_guard lock(queueLock_);
    // A handed-over queue leaves the removal to its successor.
    if (!retired_) {
      removeFrontLocked(std::exchange(flush->delivered, 0));
      if (queue_.empty()) queuedSessionId_.reset();
      if (failed && !queue_.empty()) {
        ++retryAttempts_;
      } else {
        retryAttempts_ = 0;
      }
      return persistQueue([self = shared_from_this(), flush] { self->finish(flush); });
    }
  }
  finish(flush);
}

}  // namespace kiv
