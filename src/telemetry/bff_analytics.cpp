#include "telemetry/bff_analytics.hpp"

#include <cstdio>
#include <ctime>
#include <utility>

#include "kiv/platform/platform.hpp"
#include "platform/http/url.hpp"
#include "platform/process_state.hpp"
#include "service/backend_urls.hpp"
#include "service/log_sanitizer.hpp"
#include "service/unicode_text.hpp"
#include "telemetry/analytics_error.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {

constexpr std::string_view kContentTypeHeader = "Content-Type";
constexpr std::string_view kContentTypeValue = "application/json";
constexpr std::string_view kAuthorizationHeader = "Authorization";
constexpr double kPostTimeoutSeconds = 60.0;

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

bool isBlank(std::string_view text) { return text.find_first_not_of(" \t\n\r\v\f") == std::string_view::npos; }

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\n\r\v\f");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t\n\r\v\f");
  return std::string(text.substr(first, last - first + 1));
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
  slot().set(make(std::move(configuration), KivKeyChainManager::shared()));
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
  urlSession_ = services->http->makeSession(configuration.sessionConfiguration.value_or(HttpSessionConfiguration{
      .requestCachePolicy = HttpCachePolicy::reloadIgnoringLocalAndRemoteCacheData, .label = "kiv.analytics"}));
  monitorQueue_ = services->taskPool->makeSerialQueue("kiv.analytics.pathmonitor");
  if (services->pathMonitor) pathMonitor_ = services->pathMonitor->makeMonitor();
}

KivBFFAnalytics::~KivBFFAnalytics() {
  if (pathMonitor_) pathMonitor_->cancel();
}

void KivBFFAnalytics::setProvider(std::optional<std::string> provider) {
  std::lock_guard lock(providerMutex_);
  provider_ = std::move(provider);
}

std::string KivBFFAnalytics::userId() const {
  if (personId_) {
    auto person = trimmed(*personId_);
    if (!person.empty()) return person;
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
std::shared_future<void> KivBFFAnalytics::runDetached(Build build, KivAnalyticsEndpoint endpoint) {
  auto done = std::make_shared<std::promise<void>>();
  std::shared_future<void> finished = done->get_future().share();
  platform()->taskPool->post([self = shared_from_this(), build = std::move(build), endpoint, done]() mutable {
    // Analytics never reports to the host: whatever could not be queued is
    // dropped here.
    try {
      self->send(build(*self), endpoint);
    } catch (const std::exception& error) {
      self->debug(error.what());
    } catch (...) {
    }
    done->set_value();
  });
  return finished;
}

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, TextParams params,
                                                std::optional<std::string> requestBody) {
  return runDetached(
      [name = event.name(), type = event.type(), params = std::move(params),
       requestBody = std::move(requestBody)](const KivBFFAnalytics& self) mutable {
        params["sdk_name"] = self.sdk_.name;
        params["sdk_version"] = self.sdk_.version;
        params["sdkName"] = self.sdk_.name;
        params["sdkVersion"] = self.sdk_.version;
        return self.makeBody(name, type, self.makeProperties(params, requestBody));
      },
      KivAnalyticsEndpoint::trackAnalytics);
}

std::shared_future<void> KivBFFAnalytics::track(const KivAnalyticsEvent& event, Json params,
                                                std::optional<std::string> requestBody) {
  return runDetached(
      [name = event.name(), type = event.type(), params = params.is_object() ? std::move(params) : Json::object(),
       requestBody = std::move(requestBody)](const KivBFFAnalytics& self) mutable {
        params["sdk_name"] = self.sdk_.name;
        params["sdk_version"] = self.sdk_.version;
        params["sdkName"] = self.sdk_.name;
        params["sdkVersion"] = self.sdk_.version;
        return self.makeBody(name, type, self.makeProperties(std::move(params), requestBody));
      },
      KivAnalyticsEndpoint::trackAnalytics);
}

std::shared_future<void> KivBFFAnalytics::sendCrashReport(std::string stackTrace,
                                                          std::optional<KivAnalyticsResult> result) {
  return runDetached(
      [stackTrace = std::move(stackTrace), result](const KivBFFAnalytics& self) {
        TextParams params{{"sdk_name", self.sdk_.name}, {"sdk_version", self.sdk_.version}};
        if (result) params[std::string(kResultKey)] = std::string(rawValue(*result));
        Json properties = self.makeProperties(params, std::nullopt);
        properties[kStackTraceKey] = truncateBodyText(stackTrace);
        return self.makeBody(rawValue(KivAnalyticsFixedEvent::crash), KivAnalyticsEventType::crash,
                             std::move(properties));
      },
      KivAnalyticsEndpoint::crashlytics);
}

std::string KivBFFAnalytics::baseURL() const { return analyticsBaseURL(environmentOf(stage_)); }

void KivBFFAnalytics::debug(std::string_view text) const { platform()->console->writeLine(debugQuoted(text)); }

void KivBFFAnalytics::post(const Json& body, KivAnalyticsEndpoint endpoint) {
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

  DataTaskResult result = urlSession_->send(std::move(request));
  if (result.error && !result.httpResponse()) throw *result.error;
  const HttpResponse* response = result.httpResponse();
  const int status = response ? response->statusCode : kNonHttpStatus;
  const std::string text = result.data.value_or("");
  debug(std::string(kResponseLinePrefix) + std::to_string(status) + ")");
  debug(text);
  if (result.error) throw *result.error;  // the answer broke off mid-body
  if (status < 200 || status > 299) {
    std::optional<std::string> decoded;
    if (result.data && unicode::isValidUtf8(*result.data)) decoded = *result.data;
    throw KivAnalyticsError::network(status, std::move(decoded));
  }
}

void KivBFFAnalytics::send(const Json& body, KivAnalyticsEndpoint endpoint) {
  try {
    post(body, endpoint);
  } catch (const HttpError& error) {
    enqueue(endpoint, body);
    debug(std::string(kConnectionErrorPrefix) + error.localizedDescription());
  } catch (const KivAnalyticsError& error) {
    if (error.kind() != KivAnalyticsError::Kind::network) throw;
    enqueue(endpoint, body);
    debug(std::string(kServerErrorPrefix) + error.description());
  }
}

}  // namespace kiv
