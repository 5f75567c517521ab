// The two requests the SDK sends to its backend, as plain value records, and
// what every such record provides to the service that sends it.
//
//   auto request = FetchSessionRequest::forPerson(baseURL, "person-1");
//   service->fetchSession(request, [](std::expected<SessionResponse, APIServiceError> result) { ... });
#pragma once

#include <concepts>
#include <optional>
#include <string>

#include "base/json.hpp"
#include "service/session_format.hpp"
#include "service/transactions_format.hpp"

namespace kiv {

// The answer of a request that carries no data: any JSON object decodes into
// it, whatever it holds.
struct KivEmptyResponse {
  static Decoded<KivEmptyResponse> decode(const Json& value);
  bool operator==(const KivEmptyResponse&) const = default;
};

// A request record: where it goes (`baseURL` + `path()`, joined as text, so
// the path may carry a query), its upper-case method, its parameters (the
// body, or the query items of a GET) and the record a 2xx answer decodes to.
template <typename R>
concept APIRequest = requires(const R& request, const Json& answer) {
  typename R::ResponseType;
  { request.baseURL } -> std::convertible_to<std::string>;
  { request.path() } -> std::convertible_to<std::string>;
  { request.method() } -> std::convertible_to<std::string>;
  { request.parameters() } -> std::same_as<std::optional<Json>>;
  { R::ResponseType::decode(answer) } -> std::same_as<Decoded<typename R::ResponseType>>;
};

// The parameters of a request as the body record's encoding, read back as a
// JSON object; absent when that does not give an object.
std::optional<Json> encodeParameters(const Json& body);

struct FetchSessionRequest {
  using ResponseType = SessionResponse;

  std::string baseURL;  // ends with "/"
  SessionBodyRequest sessionBodyRequest;

  // The request a run sends: the person, this SDK, no device data.
  static FetchSessionRequest forPerson(std::string baseURL, std::string personId);

  std::string path() const;
  std::string method() const;
  std::optional<Json> parameters() const;
};

struct FetchTransactionsRequest {
  using ResponseType = KivEmptyResponse;

  std::string baseURL;            // ends with "/"
  std::string livenessAttemptId;  // inserted into the path unchanged; "" when the session had none
  TransactionsBodyRequest transactionsBodyRequest;

  // The request that registers the attempt of `session`.
  static FetchTransactionsRequest forSession(std::string baseURL, const SessionResponse& session);

  std::string path() const;
  std::string method() const;
  std::optional<Json> parameters() const;
};

static_assert(APIRequest<FetchSessionRequest>);
static_assert(APIRequest<FetchTransactionsRequest>);

}  // namespace kiv
