// The offline analytics queue: bodies whose post failed, kept in memory and
// mirrored into the secure store, resent in order when the network path
// becomes usable again, also by a later process.
//
//   auto queue = KivAnalyticsOfflineQueue::make(service, sessionId, keychain);
//   queue->setSender(client);     // what posts, and builds the recovery notice
//   queue->loadQueue();
//   queue->startPathMonitor();    // a usable path flushes
//   queue->enqueue(KivAnalyticsEndpoint::trackAnalytics, body, [] { /* stored */ });
//
// The queue holds the events of one analytics session at a time: a body of
// another session is dropped while it holds events. A flush first posts a
// recovery notice, then resends a snapshot of the queue in order, each body
// marked as resent, and removes from the front what was delivered, so that
// bodies queued meanwhile stay. At most three flushes fail per process.
//
// One queue at a time owns the stored item. A queue handed over to its
// successor (handOverTo) never writes the store again; when it was flushing,
// the successor waits for that flush to tell how much of the loaded queue it
// delivered before it flushes or removes anything itself.
//
// Every member is safe from any thread. The state is guarded by one
// recursive lock: enqueue persists while holding it.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kiv/platform/path_monitor.hpp"
#include "kiv/platform/task_pool.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/offline_queue_format.hpp"

namespace kiv {

class KivAnalyticsOfflineQueue : public std::enable_shared_from_this<KivAnalyticsOfflineQueue> {
 public:
  // Runs once with null when the post was delivered, else with its error.
  using PostCompletion = std::function<void(std::exception_ptr error)>;
  using Done = std::function<void()>;

  // What a flush needs of the analytics client. Held weakly between
  // flushes, strongly during one.
  class Sender {
   public:
    virtual ~Sender() = default;
    // One bare POST; never queues.
    virtual void post(const Json& body, KivAnalyticsEndpoint endpoint, PostCompletion done) = 0;
    // The notice posted before a resend of `queued` events.
    virtual Json recoveryNotice(std::size_t queued) const = 0;
  };

  static constexpr int maxQueueRetries = 3;

  // A queue stored under `storageNamespace`, for the analytics session
  // `sessionId`; empty until loadQueue().
  static std::shared_ptr<KivAnalyticsOfflineQueue> make(std::string storageNamespace, std::string sessionId,
                                                        std::shared_ptr<KeyChainManagerProtocol> keyChainManager);
  ~KivAnalyticsOfflineQueue();
  KivAnalyticsOfflineQueue(const KivAnalyticsOfflineQueue&) = delete;
  KivAnalyticsOfflineQueue& operator=(const KivAnalyticsOfflineQueue&) = delete;

  void setSender(std::weak_ptr<Sender> sender);

  // Replaces the queue with the stored one; an unreadable item leaves it
  // empty.
  void loadQueue();
  // Flushes at every report of a usable path, the one right after start
  // included.
  void startPathMonitor();
  // Stops watching the path, for good.
  void stopPathMonitor();

  // Appends the body, unless the queue holds another session's events or
  // was handed over. Returns at once: the store is written on the queue's
  // own serial queue, never on the caller's thread. `stored` runs there
  // once the store holds the body (or writing failed: the body stays in
  // memory for this process), or at once when nothing was queued.
  void enqueue(KivAnalyticsEndpoint endpoint, Json body, Done stored = {});

  // Posts the recovery notice and resends the queue, unless it is empty, a
  // flush runs, three flushes failed in this process, or the queue waits
  // for its predecessor's flush.
  void flushQueue();

  // Finishes any write under way or due, has `next` load the stored queue,
  // then never writes the store again and stops watching the path.
  void handOverTo(const std::shared_ptr<KivAnalyticsOfflineQueue>& next);

  const std::string& storageNamespace() const { return storageNamespace_; }
  std::vector<QueuedEvent> queuedEvents() const;
  int retryAttempts() const;
  // Ready when no flush runs; otherwise when the running one has ended and
  // what it changed is stored.
  std::shared_future<void> flushFinished() const;

 private:
  struct Flush;

  KivAnalyticsOfflineQueue(std::string storageNamespace, std::string sessionId,
                           std::shared_ptr<KeyChainManagerProtocol> keyChainManager);

  // Has the queue as it stands written on the store queue, and `then` run
  // there once it is. Many changes before a write starts share that write.
  void persistQueue(Done then = {});
  // The write itself, on the store queue.
  void writeStoredQueue();
  // Writes the queue (and the session item when it changed) as of
  // `forms`; holding writeMutex_.
  void writeLocked(const std::vector<std::shared_ptr<const std::string>>& forms, const std::string& session);
  // The predecessor's flush stopped after delivering the first `delivered`
  // entries of the queue this one loaded from it.
  void takeOver(std::size_t delivered, Done then);
  void postRecoveryNotice(std::shared_ptr<Flush> flush);
  void resend(std::shared_ptr<Flush> flush, std::size_t index);
  // Removes the delivered front of the queue and counts the attempt; then
  // ends the flush.
  void settle(std::shared_ptr<Flush> flush, bool failed);
  void finish(std::shared_ptr<Flush> flush);
  // Removes the first `count` entries when the queue has that many.
  void removeFrontLocked(std::size_t count);

  const std::string storageNamespace_;
  const std::string sessionId_;
  const std::shared_ptr<KeyChainManagerProtocol> keyChainManager_;

  mutable std::recursive_mutex queueLock_;
  std::weak_ptr<Sender> sender_;
  std::vector<QueuedEvent> queue_;
  // The stored form of each entry, made once when it is queued and shared
  // with the writes that include it.
  std::vector<std::shared_ptr<const std::string>> storedForms_;
  std::optional<std::string> queuedSessionId_;
  // The session item's text as last read or written here; absent until known.
  std::optional<std::string> storedSessionId_;
  int retryAttempts_ = 0;
  bool isValidating_ = false;
  bool retired_ = false;
  // Set when handed over while flushing (or waiting to): the queue that
  // loaded this one's, told what the flush delivered at its end.
  std::weak_ptr<KivAnalyticsOfflineQueue> successor_;
  // The predecessor's flush may still deliver entries of the loaded queue:
  // no flush until it has told how many.
  bool awaitingPredecessor_ = false;
  bool satisfiedWhileAwaiting_ = false;
  std::shared_future<void> flushFinished_;
  // Writes reach the store one at a time, in order, on storeQueue_; a
  // write holds writeMutex_ (taken before queueLock_, never after it) and
  // not queueLock_, so that enqueue never waits for the disk.
  std::mutex writeMutex_;
  bool dirty_ = false;           // changed since the last write took its copy
  bool writeScheduled_ = false;  // a write is posted and has not taken its copy
  std::vector<Done> waitingForWrite_;
  std::shared_ptr<SerialQueue> storeQueue_;
  std::shared_ptr<PathMonitor> pathMonitor_;
  std::shared_ptr<SerialQueue> monitorQueue_;
};

}  // namespace kiv
