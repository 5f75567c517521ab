#include "telemetry/bff_analytics.hpp"

#include <utility>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "base/unicode_text.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/console/debug_line.hpp"
#include "platform/http/url.hpp"
#include "service/backend_urls.hpp"
#include "service/request_headers.hpp"
#include "telemetry/analytics_error.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {

// The name as the analytics contract spells it; the backend service sends
// "content-type".
constexpr std::string_view kContentTypeHeader = "Content-Type";
constexpr double kPostTimeoutSeconds = 60.0;
constexpr int kPostConnections = 4;

constexpr std::string_view kRequestLinePrefix = "KIV BFF ANALYTICS - REQUEST ";
constexpr std::string_view kResponseLinePrefix = "KIV BFF ANALYTICS - RESPONSE (status: ";
constexpr std::string_view kConnectionErrorPrefix = "Connection error: ";
constexpr std::string_view kServerErrorPrefix = "Server error: ";

// A status that is not an HTTP one (a bridge for another scheme) counts as a
// server failure.
constexpr int kNonHttpStatus = 500;

// The error of a finished post, or null for a status from 200 to 299. Runs
// on the session's thread.
std::exception_ptr outcomeOf(const DataTaskResult& result) {
  if (result.error && !result.httpResponse()) return std::make_exception_ptr(*result.error);
  const HttpResponse* response = result.httpResponse();
  const int status = response ? response->statusCode : kNonHttpStatus;
  printDebugLine(std::string(kResponseLinePrefix) + std::to_string(status) + ")");
  printDebugLine(result.data.value_or(""));
  if (result.error) return std::make_exception_ptr(*result.error);  // the answer broke off mid-body
  if (status >= 200 && status <= 299) return nullptr;
  std::optional<std::string> decoded;
  if (result.data && unicode::isValidUtf8(*result.data)) decoded = *result.data;
  return std::make_exception_ptr(KivAnalyticsError::network(status, std::move(decoded)));
}

void debugError(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    printDebugLine(e.what());
  } catch (...) {
  }
}

// A future for a post whose errors only reach the debug output: analytics
// never reports to the host.
std::pair<std::shared_future<void>, KivBFFAnalytics::PostCompletion> quietFuture() {
  auto done = std::make_shared<std::promise<void>>();
  return {done->get_future().share(), [done](std::exception_ptr error) {
            if (error) debugError(error);
            done->set_value();
          }};
}

AnalyticsIdentity identityOf(const KivBFFAnalytics::Configuration& configuration) {
  return {.platform = configuration.platform,
          .stage = configuration.stage,
          .sessionId = configuration.sessionId,
          .clientId = configuration.clientId,
          .mobileToken = configuration.mobileToken,
          .personId = configuration.personId,
          .sdk = configuration.sdk,
          .entrypoint = configuration.entrypoint.value_or(""),
          .entrypointVersion = configuration.entrypointVersion.value_or("")};
}

// The slot releases a replaced client outside its lock: the destructor
// cancels the path monitor.
ProcessSlot<std::shared_ptr<KivBFFAnalytics>>& slot() {
  static NoDestructor<ProcessSlot<std::shared_ptr<KivBFFAnalytics>>> instance;
  return *instance;
}

}  // namespace

std::shared_ptr<KivBFFAnalytics> KivBFFAnalytics::shared() { return slot().get(); }

std::shared_ptr<KivBFFAnalytics> KivBFFAnalytics::create(Configuration configuration,
                                                         std::shared_ptr<KeyChainManagerProtocol> keyChainManager) {
  std::shared_ptr<KivBFFAnalytics> client(new KivBFFAnalytics(std::move(configuration), std::move(keyChainManager)));
  client->queue_->setSender(std::shared_ptr<Sender>(client, static_cast<Sender*>(client.get())));
  return client;
}

void KivBFFAnalytics::configure(Configuration configuration) {
  auto client = create(std::move(configuration), KivKeyChainManager::shared());
  if (auto previous = slot().get()) {
    previous->queue_->handOverTo(client->queue_);
  } else {
    client->queue_->loadQueue();
  }
  client->queue_->startPathMonitor();
  slot().set(std::move(client));
}

std::shared_ptr<KivBFFAnalytics> KivBFFAnalytics::make(Configuration configuration,
                                                       std::shared_ptr<KeyChainManagerProtocol> keyChainManager) {
  auto client = create(std::move(configuration), std::move(keyChainManager));
  client->queue_->loadQueue();
  client->queue_->startPathMonitor();
  return client;
}

KivBFFAnalytics::KivBFFAnalytics(Configuration configuration, std::shared_ptr<KeyChainManagerProtocol> keyChainManager)
    : identity_(identityOf(configuration)),
      queue_(KivAnalyticsOfflineQueue::make(
          queue_format::storageNamespace(configuration.stage, configuration.clientId, configuration.mobileToken,
                                         configuration.sdk.name),
          configuration.sessionId, std::move(keyChainManager))) {
  const auto services = platform();
  // Four connections carry a steady stream of events as fast as six would on
  // loopback, and leave the backend's other connections alone.
  auto sessionConfiguration = configuration.sessionConfiguration.value_or(
      HttpSessionConfiguration{.requestCachePolicy = HttpCachePolicy::reloadIgnoringLocalAndRemoteCacheData,
                               .maximumConnectionsPerHost = kPostConnections,
                               .label = "kiv.analytics"});
  urlSession_ = services->http->makeSession(sessionConfiguration);
  // Crash reports have their own connections: a crash must be reported
  // within its bound even while every connection of the other session waits
  // on a slow backend.
  sessionConfiguration.label = "kiv.crash";
  crashSession_ = services->http->makeSession(sessionConfiguration);
}

// Releasing the client stops its queue's path monitor; a write or flush
// under way keeps the queue until it ends.
KivBFFAnalytics::~KivBFFAnalytics() { queue_->stopPathMonitor(); }

void KivBFFAnalytics::setProvider(std::optional<std::string> provider) {
  std::lock_guard lock(providerMutex_);
  provider_ = std::move(provider);
}

AnalyticsMoment KivBFFAnalytics::moment() const {
  std::lock_guard lock(providerMutex_);
  return {.time = platform()->clock->now(), .provider = provider_, .deviceData = &KivDeviceInfo::deviceData};
}

template <typename Build>
void KivBFFAnalytics::runDetached(Build build, KivAnalyticsEndpoint endpoint, PostCompletion caller) {
  {
    std::lock_guard lock(pendingMutex_);
    ++pendingPosts_;
  }
  PostCompletion done = [self = shared_from_this(), caller = std::move(caller)](std::exception_ptr error) {
    caller(error);
    std::lock_guard lock(self->pendingMutex_);
    if (--self->pendingPosts_ == 0) self->pendingChanged_.notify_all();
  };
  // The pool only builds the body; the post itself waits on nobody's thread.
  platform()->taskPool->post(
      [self = shared_from_this(), build = std::move(build), endpoint, done = std::move(done)]() mutable {
        Json body;
        try {
          body = build(self->identity_, self->moment());
        } catch (...) {
          return done(std::current_exception());
        }
        self->send(std::move(body), endpoint, std::move(done));
      });
}

void KivBFFAnalytics::waitForPendingPosts() const {
  std::unique_lock lock(pendingMutex_);
  pendingChanged_.wait(lock, [this] { return pendingPosts_ == 0; });
}

template <typename Params>
std::shared_future<void> KivBFFAnalytics::trackDetached(const KivAnalyticsEvent& event, Params params,
                                                        std::optional<std::string> requestBody) {
  auto [finished, done] = quietFuture();
  runDetached(
      [event, params = std::move(params), requestBody = std::move(requestBody)](const AnalyticsIdentity& identity,
                                                                                const AnalyticsMoment& moment) mutable {
        return envelope::trackBody(identity, moment, event, std::move(params), requestBody);
      },
      KivAnalyticsEndpoint::trackAnalytics, std::move(done));
  return finished;
}

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, TextParams params,
                                                std::optional<std::string> requestBody) {
  return trackDetached(event, std::move(params), std::move(requestBody));
}

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, Json params,
                                                std::optional<std::string> requestBody) {
  return trackDetached(event, std::move(params), std::move(requestBody));
}

std::shared_future<void> KivBFFAnalytics::sendCrashReport(std::string stackTrace,
                                                          std::optional<KivAnalyticsResult> result) {
  auto done = std::make_shared<std::promise<void>>();
  std::shared_future<void> finished = done->get_future().share();
  sendCrashReport(std::move(stackTrace), result, [done](std::exception_ptr error) {
    if (error) {
      debugError(error);
      done->set_exception(error);
    } else {
      done->set_value();
    }
  });
  return finished;
}

void KivBFFAnalytics::sendCrashReport(std::string stackTrace, std::optional<KivAnalyticsResult> result,
                                      PostCompletion done) {
  runDetached(
      [stackTrace = std::move(stackTrace), result](const AnalyticsIdentity& identity, const AnalyticsMoment& moment) {
        return envelope::crashBody(identity, moment, stackTrace, result);
      },
      KivAnalyticsEndpoint::crashlytics, std::move(done));
}

Json KivBFFAnalytics::recoveryNotice(std::size_t queued) const {
  return envelope::recoveryNotice(identity_, moment(), queued);
}

void KivBFFAnalytics::post(const Json& body, KivAnalyticsEndpoint endpoint, PostCompletion done) {
  // Shared so that a session refusing the task outright still gets an answer
  // to the caller.
  auto completion = std::make_shared<PostCompletion>(std::move(done));
  try {
    const std::string address = analyticsBaseURL(environmentOf(identity_.stage)) + std::string(rawValue(endpoint));
    if (!url::parse(address)) throw KivAnalyticsError::invalidURL();

    HttpRequest request{.url = address, .method = "POST", .timeoutSeconds = kPostTimeoutSeconds};
    request.setValue(std::string(kJsonContentType), std::string(kContentTypeHeader));
    setNoCacheHeaders(request);
    if (!unicode::trimWhiteSpaceAndNewlines(identity_.mobileToken).empty()) {
      request.setValue(identity_.mobileToken, std::string(kAuthorizationHeader));
    }
    if (!body.is_object()) throw KivAnalyticsError::encodingFailed();
    request.body = json::dumpCompact(body);

    printDebugLine(std::string(kRequestLinePrefix) + address);
    printDebugLine(*request.body);

    auto& session = endpoint == KivAnalyticsEndpoint::crashlytics ? crashSession_ : urlSession_;
    session->dataTask(std::move(request), [completion](DataTaskResult result) { (*completion)(outcomeOf(result)); })
        ->resume();
  } catch (...) {
    (*completion)(std::current_exception());
  }
}

void KivBFFAnalytics::send(Json body, KivAnalyticsEndpoint endpoint, PostCompletion done) {
  auto kept = std::make_shared<Json>(std::move(body));
  post(*kept, endpoint, [self = shared_from_this(), kept, endpoint, done = std::move(done)](std::exception_ptr error) {
    if (!error) return done(nullptr);
    std::string line;
    try {
      std::rethrow_exception(error);
    } catch (const HttpError& failure) {
      line = std::string(kConnectionErrorPrefix) + failure.localizedDescription();
    } catch (const KivAnalyticsError& failure) {
      if (failure.kind() != KivAnalyticsError::Kind::network) return done(error);
      line = std::string(kServerErrorPrefix) + failure.description();
    } catch (...) {
      return done(error);
    }
    // The caller hears once the body is stored; the session's thread only
    // hands it over.
    self->queue_->enqueue(endpoint, std::move(*kept), [done] { done(nullptr); });
    printDebugLine(line);
  });
}

}  // namespace kiv
