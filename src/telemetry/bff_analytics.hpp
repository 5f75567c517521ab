// The analytics client: turns SDK events into JSON bodies and posts them to
// the backend's analytics endpoints. One client per process, in shared().
//
//   KivBFFAnalytics::configure({.sessionId = uuid, .clientId = client, .mobileToken = token, .sdk = {name, version}});
//   if (auto analytics = KivBFFAnalytics::shared()) {
//     analytics->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep),
//                      KivBFFAnalytics::TextParams{resultParameter(KivAnalyticsResult::success)});
//   }
//
// track() and sendCrashReport() return at once: the body (see
// analytics_envelope.hpp) is built on the task pool and posted through the
// HTTP session, whose own thread runs the answer; no thread waits for the
// network. Nothing they do reaches the caller as an error. A post that
// failed for the network or with a status outside 200-299 goes to the
// offline queue (offline_queue.hpp), which resends it when the network path
// becomes usable again, also in the next process.
//
// The returned future becomes ready once the post was delivered, stored in
// the offline queue or given up; a caller that must not wait long (the crash
// handler) takes the completion form instead:
//   analytics->sendCrashReport(trace, KivAnalyticsResult::signal, [](std::exception_ptr error) { ... });
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.hpp"
#include "kiv/platform/http.hpp"
#include "service/api_response_reporter.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/analytics_envelope.hpp"
#include "telemetry/analytics_event.hpp"
#include "telemetry/analytics_vocabulary.hpp"
#include "telemetry/offline_queue.hpp"

namespace kiv {

class KivBFFAnalytics : public std::enable_shared_from_this<KivBFFAnalytics>,
                        public ApiResponseReporting,
                        private KivAnalyticsOfflineQueue::Sender {
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

  using QueuedEvent = kiv::QueuedEvent;
  using TextParams = AnalyticsTextParams;
  // Runs once, on the HTTP session's thread or on the task pool, with null
  // when the body was delivered (or stored in the offline queue) and with
  // the error otherwise.
  using PostCompletion = KivAnalyticsOfflineQueue::PostCompletion;

  static constexpr std::string_view queueKey = queue_format::queueKey;
  static constexpr std::string_view queueSessionKey = queue_format::queueSessionKey;
  static constexpr int maxQueueRetries = KivAnalyticsOfflineQueue::maxQueueRetries;

  // The configured client, or null before the first configure.
  static std::shared_ptr<KivBFFAnalytics> shared();

  // Builds a client, has it take over the offline queue (from the client it
  // replaces, or from the store), starts watching the network path and
  // stores the client in shared(). Only one client ever flushes or writes
  // the stored queue.
  static void configure(Configuration configuration);

  // A client outside the shared slot, with its queue loaded and its path
  // monitor started. configure() uses it; so may a host with its own slot.
  static std::shared_ptr<KivBFFAnalytics> make(Configuration configuration,
                                               std::shared_ptr<KeyChainManagerProtocol> keyChainManager);

  ~KivBFFAnalytics() override;
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

  // Blocks until every track and crash report started so far has been
  // delivered, queued or given up. Never on the main queue; for tests and
  // diagnostics.
  void waitForPendingPosts() const;

  // Tracks api_response (api_call) with the report; the backend service's
  // reporter. Defined in analytics_api_reporter.cpp.
  void reportApiResponse(const ApiResponseReport& report) override;

  // The value sent as requestParams.provider from now on; absent sends none.
  void setProvider(std::optional<std::string> provider);

  const std::string& sessionId() const { return identity_.sessionId; }

  // The offline queue, for diagnostics and tests.
  const KivAnalyticsOfflineQueue& offlineQueue() const { return *queue_; }
  const std::string& storageNamespace() const { return queue_->storageNamespace(); }
  std::vector<QueuedEvent> queuedEvents() const { return queue_->queuedEvents(); }
  int retryAttempts() const { return queue_->retryAttempts(); }
  std::shared_future<void> flushFinished() const { return queue_->flushFinished(); }

 private:
  KivBFFAnalytics(Configuration configuration, std::shared_ptr<KeyChainManagerProtocol> keyChainManager);
  static std::shared_ptr<KivBFFAnalytics> create(Configuration configuration,
                                                 std::shared_ptr<KeyChainManagerProtocol> keyChainManager);

  // Builds a body on the task pool and sends it, counted as pending.
  template <typename Build>
  void runDetached(Build build, KivAnalyticsEndpoint endpoint, PostCompletion done);
  // Either track(): the envelope builds a body from text or JSON parameters.
  template <typename Params>
  std::shared_future<void> trackDetached(const KivAnalyticsEvent& event, Params params,
                                         std::optional<std::string> requestBody);
  // post(), handing the body to the offline queue when the network or the
  // backend failed it; `done` gets the other errors.
  void send(Json body, KivAnalyticsEndpoint endpoint, PostCompletion done);
  // One POST of `body`. `done` gets HttpError for a transport failure,
  // KivAnalyticsError for a bad URL, a body that is not an object, or a
  // status outside 200-299.
  void post(const Json& body, KivAnalyticsEndpoint endpoint, PostCompletion done) override;
  Json recoveryNotice(std::size_t queued) const override;
  AnalyticsMoment moment() const;

  const AnalyticsIdentity identity_;
  mutable std::mutex providerMutex_;
  std::optional<std::string> provider_;
  std::shared_ptr<HttpSession> urlSession_;
  std::shared_ptr<HttpSession> crashSession_;
  // Tracks and crash reports started and not yet finished.
  mutable std::mutex pendingMutex_;
  mutable std::condition_variable pendingChanged_;
  std::size_t pendingPosts_ = 0;
  std::shared_ptr<KivAnalyticsOfflineQueue> queue_;
};

}  // namespace kiv
