// The one client of the maker's backend that the liveness flow uses.
//
// A request record (see api_request.hpp) becomes an HTTP request with the
// SDK's headers, goes out on the service's URL session (handed straight to
// the session's own thread), and completes exactly once with its decoded
// answer or an APIServiceError. Every answered request is also reported (to
// analytics, through ApiResponseReporting) on a detached task of the
// concurrent queue "kiv.sdk.queue" that never delays or changes the result.
//
//   auto service = KivService::create(KivService::makeURLSession(), std::string(kMobileTokenKey), analytics);
//   service->fetchSession(FetchSessionRequest::forPerson(baseURL, personId),
//                         [weak](APIResult<SessionResponse> result) { /* on the session's thread */ });
//
// Threads: fetch* may be called from any thread and return at once; the
// completion runs later on the URL session's thread, never on the caller's
// and never moved to the main queue by the service. A request in flight keeps
// the service alive until its completion has run.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

#include "kiv/platform/http.hpp"
#include "kiv/platform/task_pool.hpp"
#include "service/api_request.hpp"
#include "service/api_response_report.hpp"
#include "service/api_response_reporter.hpp"
#include "service/api_service_error.hpp"
#include "service/response_classification.hpp"

namespace kiv {

template <typename T>
using APIResult = std::expected<T, APIServiceError>;

class KivServiceProtocol {
 public:
  using SessionCompletion = std::function<void(APIResult<SessionResponse>)>;
  using TransactionsCompletion = std::function<void(APIResult<KivEmptyResponse>)>;

  virtual ~KivServiceProtocol() = default;
  virtual void fetchSession(const FetchSessionRequest& request, SessionCompletion completion) = 0;
  virtual void fetchTransactions(const FetchTransactionsRequest& request, TransactionsCompletion completion) = 0;
};

class KivService final : public KivServiceProtocol, public std::enable_shared_from_this<KivService> {
 public:
  static constexpr std::string_view kQueueLabel = "kiv.sdk.queue";

  // Sets the process-wide token key to `tokenKeychainKey` (the last service
  // created wins). Without a reporter of its own (an analytics client) the
  // service reports to sharedApiResponseReporter(), if any.
  static std::shared_ptr<KivService> create(std::shared_ptr<HttpSession> session, std::string tokenKeychainKey,
                                            std::shared_ptr<ApiResponseReporting> analytics);

  // A session as the service expects its creator to make one: ephemeral,
  // no cache, requests reloading from the origin, no cookies.
  static std::shared_ptr<HttpSession> makeURLSession();

  // The secure-store key (under "kiv.sdk.service") whose text is sent as
  // "Authorization", shared by every service in the process.
  static std::string tokenKeychainKey();

  void fetchSession(const FetchSessionRequest& request, SessionCompletion completion) override;
  void fetchTransactions(const FetchTransactionsRequest& request, TransactionsCompletion completion) override;

  // --- The steps of a request, public for tests and fuzzing ---------------

  // The HTTP request for `request`; a file URL named "error" (which the
  // transport refuses without a response) when baseURL + path is not a URL.
  template <APIRequest R>
  static HttpRequest makeURLRequest(const R& request) {
    return makeURLRequest(request.baseURL + request.path(), request.method(), request.parameters());
  }
  static HttpRequest makeURLRequest(const std::string& urlText, const std::string& method,
                                    const std::optional<Json>& parameters);

  // Completes with the outcome's classification, then reports the outcome
  // to analytics: the caller's answer goes first, as the report's work would
  // only delay it on a busy core.
  template <typename ResponseType>
  void handleResponse(const std::string& endpoint, const DataTaskResult& result,
                      const std::function<void(APIResult<ResponseType>)>& completion) {
    completion(classifyResponse<ResponseType>(transportOutcome(result)));
    trackApiResponse(endpoint, result);
  }

  // The analytics hook: builds the properties now (reading the request's
  // timer) and hands them over on a detached task nobody waits for.
  void trackApiResponse(const std::string& endpoint, const DataTaskResult& result);

  const std::string& queueLabel() const { return queueLabel_; }

 private:
  KivService(std::shared_ptr<HttpSession> session, std::shared_ptr<ApiResponseReporting> analytics);

  template <typename ResponseType>
  void send(HttpRequest request, std::function<void(APIResult<ResponseType>)> completion);

  static TransportOutcome transportOutcome(const DataTaskResult& result);

  std::shared_ptr<HttpSession> session_;
  std::string queueLabel_;
  std::shared_ptr<TaskPool> queue_;  // reports go out on it, concurrently
  std::shared_ptr<ApiResponseReporting> analytics_;
};

}  // namespace kiv
