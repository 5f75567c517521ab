// The analytics client: turns SDK events into JSON bodies and posts them to
// the backend's analytics endpoints. One client per process, in shared().
//
//   KivBFFAnalytics::configure({.sessionId = uuid, .clientId = client, .mobileToken = token, .sdk = {name, version}});
//   if (auto analytics = KivBFFAnalytics::shared()) {
//     analytics->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep),
//                      KivBFFAnalytics::TextParams{{"result", "success"}});
//   }
//
// track() and sendCrashReport() return at once: the body is built on the
// task pool and posted through the HTTP session, whose own thread runs the
// answer; no thread waits for the network. Nothing they do reaches the
// caller as an error. A post that failed for the network or with a status
// outside 200-299 is kept in an offline queue mirrored into the secure store
// and resent, in order, when the network path becomes usable again, also by
// the next process.
//
// The returned future becomes ready once the post was delivered, queued or
// given up; a caller that must not wait long (the crash handler) takes the
// completion form instead:
//   analytics->sendCrashReport(trace, KivAnalyticsResult::signal, [](std::exception_ptr error) { ... });
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kiv/platform/clock.hpp"
#include "kiv/platform/http.hpp"
#include "kiv/platform/path_monitor.hpp"
#include "kiv/platform/task_pool.hpp"
#include "base/json.hpp"
#include "service/api_response_reporter.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {

class KivBFFAnalytics : public std::enable_shared_from_this<KivBFFAnalytics>, public ApiResponseReporting {
 public:
  struct Configuration {
    std::string sessionId{};
    KivAnalyticsPlatform platform = KivAnalyticsPlatform::nativeIOS;
    KivAnalyticsStage stage = KivAnalyticsStage::prod;
    std::string clientId{};
    std::string mobileToken{};
    std::optional<std::string> personId{};
    KivSDKInfo sdk{};
    std::optional<HttpSessionConfiguration> sessionConfiguration{};
    std::optional<std::string> entrypoint{};
    std::optional<std::string> entrypointVersion{};
  };

  // One body that could not be posted, waiting for the network.
  struct QueuedEvent {
    KivAnalyticsEndpoint endpoint;
    Json jsonBody;  // an object: the complete body as it would have been posted
    TimePoint timestamp;
  };

  using TextParams = std::map<std::string, std::string>;
  // Runs once, on the HTTP session's thread or on the task pool, with null
  // when the body was delivered (or, after send, queued) and with the error
  // otherwise.
  using PostCompletion = std::function<void(std::exception_ptr error)>;

  // Item names of the offline queue in the secure store.
  static constexpr std::string_view queueKey = "kiv_analytics_queue";
  static constexpr std::string_view queueSessionKey = "kiv_analytics_queue_session";
  static constexpr int maxQueueRetries = 3;

  // The configured client, or null before the first configure.
  static std::shared_ptr<KivBFFAnalytics> shared();

  // Builds a client, loads the queue an earlier client left in the secure
  // store, starts watching the network path and stores the client in
  // shared(). The client it held is retired as the new one loads, so that
  // only one client ever flushes or writes the stored queue; when the
  // retired one was flushing, the new one flushes only once that flush has
  // stopped, without what it delivered.
  static void configure(Configuration configuration);

  // A client outside the shared slot, with its queue loaded and its path
  // monitor started. configure() uses it; so may a host with its own slot.
  static std::shared_ptr<KivBFFAnalytics> make(Configuration configuration,
                                               std::shared_ptr<KeyChainManagerProtocol> keyChainManager);

  ~KivBFFAnalytics();
  KivBFFAnalytics(const KivBFFAnalytics&) = delete;
  KivBFFAnalytics& operator=(const KivBFFAnalytics&) = delete;

  // Posts the event to track-analytics with text-valued parameters (none is
  // the same as an empty map). Safe from any thread.
  std::shared_future<void> track(const KivAnalyticsEvent& event, TextParams params = {},
                                 std::optional<std::string> requestBody = std::nullopt);
  // The same with parameters of any JSON value (`params` an object; null
  // means none).
  std::shared_future<void> track(const KivAnalyticsEvent& event, Json params,
                                 std::optional<std::string> requestBody = std::nullopt);

  // Posts a crash report to crashlytics, on a session of its own so that it
  // never waits behind a backlog of other events. The future holds the error
  // when the report was neither delivered nor queued. Safe from any thread.
  std::shared_future<void> sendCrashReport(std::string stackTrace,
                                           std::optional<KivAnalyticsResult> result = std::nullopt);
  void sendCrashReport(std::string stackTrace, std::optional<KivAnalyticsResult> result, PostCompletion done);

  // Stops watching the network path and flushing, at once and for good, and
  // never writes the stored queue again: a later failed post of this client
  // is dropped. A flush under way stops before its next post. Safe from any
  // thread; configure() retires the client it replaces.
  void retire();

  // Blocks until every track and crash report started so far has been
  // delivered, queued or given up. Never on the main queue; for tests and
  // diagnostics.
  void waitForPendingPosts() const;

  // Ready when no flush is running; otherwise becomes ready when the running
  // one has ended. For diagnostics and tests.
  std::shared_future<void> flushFinished() const;

  // Tracks api_response (api_call) with the properties; the backend
  // service's reporter. Defined in analytics_api_reporter.cpp.
  void reportApiResponse(const ApiResponseProperties& properties) override;

  // The value sent as requestParams.provider from now on; absent sends none.
  void setProvider(std::optional<std::string> provider);

  // --- The steps behind track and sendCrashReport. Neither blocks.

  // post(), queueing the body when the network or the backend failed it;
  // `done` gets the other errors.
  void send(Json body, KivAnalyticsEndpoint endpoint, PostCompletion done);
  // One POST of `body`. `done` gets HttpError for a transport failure,
  // KivAnalyticsError for a bad URL, a body that is not an object, or a
  // status outside 200-299.
  void post(const Json& body, KivAnalyticsEndpoint endpoint, PostCompletion done);

  // The envelope's properties object.
  Json makeProperties(const TextParams& params, const std::optional<std::string>& requestBody) const;
  Json makeProperties(Json params, const std::optional<std::string>& requestBody) const;
  // The four-key body around `properties`.
  Json makeBody(std::string_view eventName, KivAnalyticsEventType eventType, Json properties) const;

  // The trimmed person id, or the session id when that is absent or blank.
  std::string userId() const;
  const std::string& sessionId() const { return sessionId_; }

  // The secure-store service holding this client's queue.
  std::string storageNamespace() const;
  // The queue as it stands (oldest first), for diagnostics.
  std::vector<QueuedEvent> queuedEvents() const;
  int retryAttempts() const;

  // The persisted form of a queue, and back: absent when an entry lacks a
  // known endpoint, base64 body bytes or a time the clock can hold; body
  // bytes that are not a JSON object decode as an empty body.
  static std::string encodeQueue(const std::vector<QueuedEvent>& queue);
  static std::optional<std::vector<QueuedEvent>> decodeQueue(std::string_view bytes);

  // "2025-01-31T12:34:56.789Z".
  static std::string timestampText(TimePoint time);

 private:
  KivBFFAnalytics(Configuration configuration, std::shared_ptr<KeyChainManagerProtocol> keyChainManager);

  template <typename Build>
  void runDetached(Build build, KivAnalyticsEndpoint endpoint, PostCompletion done);
  std::string baseURL() const;

  // One entry of the stored array, and the array around such entries.
  static std::string storedForm(const QueuedEvent& event);
  static std::string joinedArray(const std::vector<std::string>& items);

  void loadQueue();
  void startPathMonitor();
  // Retires this client and has `next` load the stored queue meanwhile.
  void handOverTo(const std::shared_ptr<KivBFFAnalytics>& next);
  // The predecessor's flush stopped after delivering the first `delivered`
  // entries of the queue this client loaded from it.
  void takeOver(std::size_t delivered);
  void enqueue(KivAnalyticsEndpoint endpoint, const Json& body);
  void persistQueue();
  void flushQueue();
  // The steps of one flush, each started by the completion of the one
  // before: the recovery notice, then the resend of snapshot entry `index`.
  struct Flush;
  void postRecoveryNotice(std::shared_ptr<Flush> flush);
  void resend(std::shared_ptr<Flush> flush, std::size_t index);
  // Removes the first flush.delivered entries (those queued meanwhile
  // stay); nothing is left for a successor to remove.
  void settle(Flush& flush, bool failed);
  void finish(Flush& flush);
  void debug(std::string_view text) const;

  const std::string sessionId_;
  const KivAnalyticsPlatform platform_;
  const KivAnalyticsStage stage_;
  const std::string clientId_;
  const std::string mobileToken_;
  const std::optional<std::string> personId_;
  const KivSDKInfo sdk_;
  const std::string entrypoint_;
  const std::string entrypointVersion_;
  mutable std::mutex providerMutex_;
  std::optional<std::string> provider_;
  std::shared_ptr<HttpSession> urlSession_;
  std::shared_ptr<HttpSession> crashSession_;
  // Tracks and crash reports started and not yet finished.
  mutable std::mutex pendingMutex_;
  mutable std::condition_variable pendingChanged_;
  std::size_t pendingPosts_ = 0;
  std::shared_ptr<KeyChainManagerProtocol> keyChainManager_;

  // The offline queue; guarded by queueLock_, which is recursive because
  // enqueue persists while holding it.
  mutable std::recursive_mutex queueLock_;
  std::vector<QueuedEvent> queue_;
  // The stored form of each queue entry, made once when it is queued: the
  // whole array is rewritten on every change, but no body is serialised
  // twice.
  std::vector<std::string> storedForms_;
  std::optional<std::string> queuedSessionId_;
  // The session item's text as last read or written by this client; absent
  // until known.
  std::optional<std::string> storedSessionId_;
  int retryAttempts_ = 0;
  bool isValidating_ = false;
  bool retired_ = false;
  // Set when this client was retired while flushing (or waiting to): the
  // client that loaded its queue, told what the flush delivered at its end.
  std::weak_ptr<KivBFFAnalytics> successor_;
  // The predecessor's flush may still deliver entries of the loaded queue:
  // no flush until it has told how many.
  bool awaitingPredecessor_ = false;
  bool satisfiedWhileAwaiting_ = false;
  std::shared_future<void> flushFinished_;
  std::shared_ptr<PathMonitor> pathMonitor_;
  std::shared_ptr<SerialQueue> monitorQueue_;
};

}  // namespace kiv
