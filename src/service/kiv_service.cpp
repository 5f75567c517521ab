#include "service/kiv_service.hpp"

#include <utility>
#include <vector>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "base/timer.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/http/url.hpp"
#include "service/key_chain_manager.hpp"
#include "service/request_headers.hpp"

namespace kiv {
namespace {

constexpr std::string_view kGet = "GET";

// Where a request goes whose URL text is not a URL: a local file the
// transport will not load, so the request fails without a response.
constexpr std::string_view kErrorURL = "file:///error";
constexpr double kErrorTimeoutSeconds = 60.0;
constexpr double kTimeoutSeconds = 20.0;

// Lower case on purpose: the backend's gateway matches it as written.
constexpr std::string_view kContentType = "content-type";

// The process-wide token key. Written when a service is created and read by
// every request; guarded because those may be on different threads.
ProcessSlot<std::string>& tokenKey() {
  static NoDestructor<ProcessSlot<std::string>> slot;
  return *slot;
}

// A query item's value: texts as they are, numbers and literals as JSON
// writes them except booleans, which read "1" and "0" as the backend's other
// clients send them; containers as compact JSON.
std::string queryText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  return json::dumpCompact(value);
}

std::string transportErrorText(const HttpError& error) {
  if (error.detail().empty()) return error.localizedDescription();
  return error.localizedDescription() + " (" + error.detail() + ")";
}

}  // namespace

std::shared_ptr<KivService> KivService::create(std::shared_ptr<HttpSession> session, std::string tokenKeychainKey,
                                               std::shared_ptr<ApiResponseReporting> analytics) {
  tokenKey().set(std::move(tokenKeychainKey));
  return std::shared_ptr<KivService>(new KivService(std::move(session), std::move(analytics)));
}

KivService::KivService(std::shared_ptr<HttpSession> session, std::shared_ptr<ApiResponseReporting> analytics)
    : session_(std::move(session)),
      queueLabel_(kQueueLabel),
      queue_(platform()->taskPool),
      analytics_(std::move(analytics)) {}

std::shared_ptr<HttpSession> KivService::makeURLSession() {
  HttpSessionConfiguration configuration;
  configuration.requestCachePolicy = HttpCachePolicy::reloadIgnoringLocalAndRemoteCacheData;
  return platform()->http->makeSession(std::move(configuration));
}

std::string KivService::tokenKeychainKey() { return tokenKey().get(); }

HttpRequest KivService::makeURLRequest(const std::string& urlText, const std::string& method,
                                       const std::optional<Json>& parameters) {
  if (!url::parse(urlText)) return HttpRequest{.url = std::string(kErrorURL), .timeoutSeconds = kErrorTimeoutSeconds};

  std::string target = urlText;
  if (method == kGet && parameters) {
    std::vector<std::pair<std::string, std::string>> items;
    for (const auto& [name, value] : parameters->items()) items.emplace_back(name, queryText(value));
    if (auto replaced = url::replacingQueryItems(urlText, items)) target = std::move(*replaced);
  }

  HttpRequest request{.url = std::move(target),
                      .method = method,
                      .timeoutSeconds = kTimeoutSeconds,
                      .cachePolicy = HttpCachePolicy::useProtocolCachePolicy};
  setNoCacheHeaders(request);
  // The bare mobile token, as stored: the backend expects no scheme word.
  if (auto token = KivKeyChainManager::shared()->readString(kKivSDKService, tokenKeychainKey())) {
    request.setValue(std::move(*token), std::string(kAuthorizationHeader));
  }
  if (method != kGet) {
    request.setValue(std::string(kJsonContentType), std::string(kContentType));
    if (parameters) request.body = json::dumpCompact(*parameters);
  }
  return request;
}

void KivService::fetchSession(const FetchSessionRequest& request, SessionCompletion completion) {
  send<SessionResponse>(makeURLRequest(request), std::move(completion));
}

void KivService::fetchTransactions(const FetchTransactionsRequest& request, TransactionsCompletion completion) {
  send<KivEmptyResponse>(makeURLRequest(request), std::move(completion));
}

template <typename ResponseType>
void KivService::send(HttpRequest request, std::function<void(APIResult<ResponseType>)> completion) {
  std::string endpoint = request.url;
  KivSDKTimer::shared().start(endpoint);
  // Resumed here rather than from a task on the queue: resume() only hands
  // the request to the session's thread, so a hop through the pool would add
  // a thread wake-up to every request and nothing else. The closure holds
  // the service strongly: a request outlives the caller's interest in the
  // service, and its answer is still reported.
  session_
      ->dataTask(std::move(request),
                 [self = shared_from_this(), endpoint = std::move(endpoint), completion = std::move(completion)](
                     DataTaskResult result) { self->handleResponse(endpoint, result, completion); })
      ->resume();
}

TransportOutcome KivService::transportOutcome(const DataTaskResult& result) {
  TransportOutcome outcome;
  if (result.response) {
    const auto* http = result.httpResponse();
    outcome.response = TransportOutcome::Response{http != nullptr, http ? http->statusCode : 0};
  }
  outcome.data = result.data;
  if (result.error) outcome.error = result.error->localizedDescription();
  return outcome;
}

void KivService::trackApiResponse(const std::string& endpoint, const DataTaskResult& result) {
  ApiResponseFacts facts{.endpoint = endpoint};
  if (const auto* http = result.httpResponse()) facts.statusCode = http->statusCode;
  facts.data = result.data;
  if (result.error) facts.transportError = transportErrorText(*result.error);
  auto report = apiResponseReport(facts);

  auto reporter = analytics_ ? analytics_ : sharedApiResponseReporter();
  if (!reporter) return;
  queue_->post([reporter = std::move(reporter), report = std::move(report)] { reporter->reportApiResponse(report); });
}

}  // namespace kiv
