// How the outcome of one backend request becomes its result. Pure: no
// network, no analytics, no clock; KivService reports the outcome and then
// completes with what this gives.
//
// The decisions, in order:
//   no response, or one that is not HTTP      -> invalidResponse
//   a transport error on an HTTP response      -> httpError(status, error text)
//   status 500                                 -> httpError(500, "Server Error"), body unread
//   no body bytes at all                       -> noData
//   2xx                                        -> the body decoded, or decodingError
//   anything else                              -> httpError(status, body text)
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/json.hpp"
#include "service/api_request.hpp"
#include "service/api_service_error.hpp"

namespace kiv {

// What the transport gave for one request.
struct TransportOutcome {
  struct Response {
    bool isHTTP = true;
    std::int64_t statusCode = 0;
  };
  std::optional<Response> response;
  std::optional<std::string> data;   // the body bytes; none when the transport had none
  std::optional<std::string> error;  // the transport error's readable description
};

inline constexpr std::string_view kServerError = "Server Error";

// The text a decodingError carries for a body that is a JSON object but not
// the expected record: the object's compact JSON.
std::string debugDescription(const Json& object);

namespace response_classification {

// The 2xx body as JSON, or the decodingError that the body earns when it is
// not JSON at all. `emptyIsObject`: an empty body reads as "{}".
std::expected<Json, APIServiceError> parseAnswer(std::string_view body, bool emptyIsObject);

// The decodingError for a body that parsed as `answer` but did not decode.
APIServiceError undecodable(const Json& answer);

// The non-2xx, non-500 answer: its body as text when it is UTF-8.
APIServiceError httpFailure(std::int64_t statusCode, std::string_view body);

}  // namespace response_classification

template <typename ResponseType>
std::expected<ResponseType, APIServiceError> classifyResponse(const TransportOutcome& outcome) {
  namespace rc = response_classification;
  if (!outcome.response || !outcome.response->isHTTP) return std::unexpected(APIServiceError::invalidResponse{});
  const auto status = outcome.response->statusCode;
  if (outcome.error) return std::unexpected(APIServiceError::httpError{status, *outcome.error});
  if (status == 500) return std::unexpected(APIServiceError::httpError{status, std::string(kServerError)});
  if (!outcome.data) return std::unexpected(APIServiceError::noData{});
  if (status < 200 || status > 299) return std::unexpected(rc::httpFailure(status, *outcome.data));

  // A request without an answer record takes an empty body as an empty object.
  constexpr bool emptyIsObject = std::is_same_v<ResponseType, KivEmptyResponse>;
  auto answer = rc::parseAnswer(*outcome.data, emptyIsObject);
  if (!answer) return std::unexpected(std::move(answer.error()));
  auto decoded = ResponseType::decode(*answer);
  if (!decoded) return std::unexpected(rc::undecodable(*answer));
  return std::move(*decoded);
}

}  // namespace kiv
