#include "telemetry/bff_analytics.hpp"
#include "platform/console/debug_line.hpp"

#include <cstdio>
#include <ctime>
#include <utility>

#include "kiv/platform/platform.hpp"
#include "platform/http/url.hpp"
#include "base/process_state.hpp"
#include "service/backend_urls.hpp"
#include "service/log_sanitizer.hpp"
#include "base/unicode_text.hpp"
#include "telemetry/analytics_error.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {

constexpr std::string_view kContentTypeHeader = "Content-Type";
constexpr std::string_view kContentTypeValue = "application/json";
constexpr std::string_view kAuthorizationHeader = "Authorization";
constexpr double kPostTimeoutSeconds = 60.0;
constexpr int kPostConnections = 4;

constexpr std::string_view kRequestLinePrefix = "KIV BFF ANALYTICS - REQUEST ";
constexpr std::string_view kResponseLinePrefix = "KIV BFF ANALYTICS - RESPONSE (status: ";
constexpr std::string_view kConnectionErrorPrefix = "Connection error: ";
constexpr std::string_view kServerErrorPrefix = "Server error: ";

// Envelope keys.
constexpr std::string_view kUserIdKey = "userId";
constexpr std::string_view kEventKey = "event";
constexpr std::string_view kEventTypeKey = "eventType";
constexpr std::string_view kPropertiesKey = "properties";
constexpr std::string_view kRequestParamsKey = "requestParams";
constexpr std::string_view kRequestBodyKey = "requestBody";
constexpr std::string_view kStackTraceKey = "stackTrace";
constexpr std::string_view kResultKey = "result";
constexpr std::string_view kDeviceDataKey = "deviceData";
// Parameters read from the caller's map and lifted to the top of the
// properties, in this order.
constexpr std::array<std::string_view, 4> kLiftedApiKeys{"apiEndpoint", "responseCode", "responseTime", "responseData"};

// A status that is not an HTTP one (a bridge for another scheme) counts as a
// server failure.
constexpr int kNonHttpStatus = 500;

bool isBlank(std::string_view text) { return unicode::trimWhiteSpaceAndNewlines(text).empty(); }


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

// The slot releases a replaced client outside its lock: the destructor
// cancels the path monitor.
ProcessSlot<std::shared_ptr<KivBFFAnalytics>>& slot() {
  static ProcessSlot<std::shared_ptr<KivBFFAnalytics>> instance;
  return instance;
}

}  // namespace

std::shared_ptr<KivBFFAnalytics> KivBFFAnalytics::shared() { return slot().get(); }

void KivBFFAnalytics::configure(Configuration configuration) {
  std::shared_ptr<KivBFFAnalytics> client(new KivBFFAnalytics(std::move(configuration), KivKeyChainManager::shared()));
  if (auto previous = slot().get()) {
    previous->handOverTo(client);
  } else {
    client->loadQueue();
  }
  client->startPathMonitor();
  slot().set(std::move(client));
}

std::shared_ptr<KivBFFAnalytics> KivBFFAnalytics::make(Configuration configuration,
                                                       std::shared_ptr<KeyChainManagerProtocol> keyChainManager) {
  std::shared_ptr<KivBFFAnalytics> client(new KivBFFAnalytics(std::move(configuration), std::move(keyChainManager)));
  client->loadQueue();
  client->startPathMonitor();
  return client;
}

KivBFFAnalytics::KivBFFAnalytics(Configuration configuration, std::shared_ptr<KeyChainManagerProtocol> keyChainManager)
    : sessionId_(std::move(configuration.sessionId)),
      platform_(configuration.platform),
      stage_(configuration.stage),
      clientId_(std::move(configuration.clientId)),
      mobileToken_(std::move(configuration.mobileToken)),
      personId_(std::move(configuration.personId)),
      sdk_(std::move(configuration.sdk)),
      entrypoint_(configuration.entrypoint.value_or("")),
      entrypointVersion_(configuration.entrypointVersion.value_or("")),
      keyChainManager_(std::move(keyChainManager)) {
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
  std::promise<void> idle;
  idle.set_value();
  flushFinished_ = idle.get_future().share();
  monitorQueue_ = services->taskPool->makeSerialQueue("kiv.analytics.pathmonitor");
  if (services->pathMonitor) pathMonitor_ = services->pathMonitor->makeMonitor();
}

KivBFFAnalytics::~KivBFFAnalytics() {
  if (pathMonitor_) pathMonitor_->cancel();
  // Released before a flush it had started ran: nothing was delivered.
  if (auto successor = successor_.lock()) successor->takeOver(0);
}

void KivBFFAnalytics::setProvider(std::optional<std::string> provider) {
  std::lock_guard lock(providerMutex_);
  provider_ = std::move(provider);
}

std::string KivBFFAnalytics::userId() const {
  if (personId_) {
    const auto person = unicode::trimWhiteSpaceAndNewlines(*personId_);
    if (!person.empty()) return std::string(person);
  }
  return sessionId_;
}

std::string KivBFFAnalytics::timestampText(TimePoint time) {
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  gmtime_r(&whole, &parts);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>((milliseconds - seconds).count()));
  return text.data();
}

Json KivBFFAnalytics::makeProperties(const TextParams& params, const std::optional<std::string>& requestBody) const {
  Json sanitized = Json::object();
  for (auto& [key, value] : sanitizeDictionary(params)) sanitized[key] = std::move(value);
  return makeProperties(std::move(sanitized), requestBody);
}

Json KivBFFAnalytics::makeProperties(Json params, const std::optional<std::string>& requestBody) const {
  Json base = Json::object();
  base["platform"] = rawValue(platform_);
  base["clientId"] = clientId_;
  base["personId"] = userId();
  base["sessionId"] = sessionId_;
  base["timestamp"] = timestampText(platform()->clock->now());

  // Text-valued parameters arrive sanitised already; sanitising again is a
  // no-op for them.
  Json p = params.is_object() ? sanitizeDictionary(std::move(params)) : Json::object();
  p["mobileToken"] = mobileToken_;
  p["sdkInfoEnvironment"] = rawValue(stage_);
  if (!p.contains(kDeviceDataKey)) p[kDeviceDataKey] = KivDeviceInfo::deviceData();
  if (!entrypoint_.empty()) p["entrypoint"] = entrypoint_;
  if (!entrypointVersion_.empty()) p["entrypointVersion"] = entrypointVersion_;
  {
    std::lock_guard lock(providerMutex_);
    if (provider_) p["provider"] = *provider_;
  }
  const auto lift = [&](std::string_view key) {
    const auto found = p.find(key);
    if (found == p.end()) return;
    base[key] = std::move(*found);
    p.erase(found);
  };
  lift(kResultKey);
  for (const auto key : kLiftedApiKeys) lift(key);
  if (!p.empty()) base[kRequestParamsKey] = std::move(p);
  if (requestBody) base[kRequestBodyKey] = truncateBodyText(*requestBody);
  return sanitizeDictionary(std::move(base));
}

Json KivBFFAnalytics::makeBody(std::string_view eventName, KivAnalyticsEventType eventType, Json properties) const {
  Json body = Json::object();
  body[kUserIdKey] = userId();
  body[kEventKey] = eventName;
  body[kEventTypeKey] = rawValue(eventType);
  body[kPropertiesKey] = std::move(properties);
  return body;
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
          body = build(*self);
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

namespace {

// A future for a post whose errors only reach the debug output: analytics
// never reports to the host.
std::pair<std::shared_future<void>, KivBFFAnalytics::PostCompletion> quietFuture() {
  auto done = std::make_shared<std::promise<void>>();
  return {done->get_future().share(), [done](std::exception_ptr error) {
            if (error) debugError(error);
            done->set_value();
          }};
}

void addSdkParameters(auto& params, const KivSDKInfo& sdk) {
  params["sdk_name"] = sdk.name;
  params["sdk_version"] = sdk.version;
  params["sdkName"] = sdk.name;
  params["sdkVersion"] = sdk.version;
}

}  // namespace

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, TextParams params,
                                                std::optional<std::string> requestBody) {
  auto [finished, done] = quietFuture();
  runDetached(
      [name = event.name(), type = event.type(), params = std::move(params),
       requestBody = std::move(requestBody)](const KivBFFAnalytics& self) mutable {
        addSdkParameters(params, self.sdk_);
        return self.makeBody(name, type, self.makeProperties(params, requestBody));
      },
      KivAnalyticsEndpoint::trackAnalytics, std::move(done));
  return finished;
}

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, Json params,
                                                std::optional<std::string> requestBody) {
  auto [finished, done] = quietFuture();
  runDetached(
      [name = event.name(), type = event.type(), params = params.is_object() ? std::move(params) : Json::object(),
       requestBody = std::move(requestBody)](const KivBFFAnalytics& self) mutable {
        addSdkParameters(params, self.sdk_);
        return self.makeBody(name, type, self.makeProperties(std::move(params), requestBody));
      },
      KivAnalyticsEndpoint::trackAnalytics, std::move(done));
  return finished;
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
      [stackTrace = std::move(stackTrace), result](const KivBFFAnalytics& self) {
        TextParams params{{"sdk_name", self.sdk_.name}, {"sdk_version", self.sdk_.version}};
        if (result) params[std::string(kResultKey)] = std::string(rawValue(*result));
        Json properties = self.makeProperties(params, std::nullopt);
        properties[kStackTraceKey] = truncateBodyText(stackTrace);
        return self.makeBody(rawValue(KivAnalyticsFixedEvent::crash), KivAnalyticsEventType::crash,
                             std::move(properties));
      },
      KivAnalyticsEndpoint::crashlytics, std::move(done));
}

std::string KivBFFAnalytics::baseURL() const { return analyticsBaseURL(environmentOf(stage_)); }

void KivBFFAnalytics::debug(std::string_view text) const { printDebugLine(text); }

void KivBFFAnalytics::post(const Json& body, KivAnalyticsEndpoint endpoint, PostCompletion done) {
  // Shared so that a session refusing the task outright still gets an answer
  // to the caller.
  auto completion = std::make_shared<PostCompletion>(std::move(done));
  try {
    const std::string address = baseURL() + std::string(rawValue(endpoint));
    if (!url::parse(address)) throw KivAnalyticsError::invalidURL();

    HttpRequest request{.url = address, .method = "POST", .timeoutSeconds = kPostTimeoutSeconds};
    request.setValue(std::string(kContentTypeValue), std::string(kContentTypeHeader));
    request.setValue("no-cache, no-store, must-revalidate", "Cache-Control");
    request.setValue("no-cache", "Pragma");
    request.setValue("0", "Expires");
    if (!isBlank(mobileToken_)) request.setValue(mobileToken_, std::string(kAuthorizationHeader));
    if (!body.is_object()) throw KivAnalyticsError::encodingFailed();
    request.body = json::dumpCompact(body);

    debug(std::string(kRequestLinePrefix) + address);
    debug(*request.body);

    auto& session = endpoint == KivAnalyticsEndpoint::crashlytics ? crashSession_ : urlSession_;
    session
        ->dataTask(std::move(request),
                   [completion](DataTaskResult result) {
                     const auto error = outcomeOf(result);
                     (*completion)(error);
                   })
        ->resume();
  } catch (...) {
    (*completion)(std::current_exception());
  }
}

void KivBFFAnalytics::send(Json body, KivAnalyticsEndpoint endpoint, PostCompletion done) {
  auto kept = std::make_shared<Json>(std::move(body));
  post(*kept, endpoint, [self = shared_from_this(), kept, endpoint, done = std::move(done)](std::exception_ptr error) {
    if (error) {
      try {
        std::rethrow_exception(error);
      } catch (const HttpError& failure) {
        self->enqueue(endpoint, *kept);
        self->debug(std::string(kConnectionErrorPrefix) + failure.localizedDescription());
        error = nullptr;
      } catch (const KivAnalyticsError& failure) {
        if (failure.kind() == KivAnalyticsError::Kind::network) {
          self->enqueue(endpoint, *kept);
          self->debug(std::string(kServerErrorPrefix) + failure.description());
          error = nullptr;
        }
      } catch (...) {
      }
    }
    done(error);
  });
}

}  // namespace kiv
