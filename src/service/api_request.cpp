#include "service/api_request.hpp"

namespace kiv {
namespace {

constexpr std::string_view kPost = "POST";
constexpr std::string_view kSessionsPath = "bff/sessions?asyncAttempt=true";
constexpr std::string_view kTransactionsPathStart = "bff/transactions/";
constexpr std::string_view kTransactionsPathEnd = "/async";

}  // namespace

Decoded<KivEmptyResponse> KivEmptyResponse::decode(const Json& value) {
  if (!value.is_object()) {
    return std::unexpected(DecodeError{"", "expected object, found " + std::string(json::typeName(value))});
  }
  return KivEmptyResponse{};
}

std::optional<Json> encodeParameters(const Json& body) {
  // Going through the bytes keeps the parameters exactly what an encoder
  // would put on the wire (invalid UTF-8 already replaced, for one).
  auto parsed = json::parse(json::dumpCompact(body));
  if (!parsed || !parsed->is_object()) return std::nullopt;
  return parsed;
}

FetchSessionRequest FetchSessionRequest::forPerson(std::string baseURL, std::string personId) {
  return FetchSessionRequest{std::move(baseURL), SessionBodyRequest{std::move(personId), SessionSdk::current(), {}}};
}

std::string FetchSessionRequest::path() const { return std::string(kSessionsPath); }

std::string FetchSessionRequest::method() const { return std::string(kPost); }

std::optional<Json> FetchSessionRequest::parameters() const { return encodeParameters(sessionBodyRequest.encode()); }

FetchTransactionsRequest FetchTransactionsRequest::forSession(std::string baseURL, const SessionResponse& session) {
  return FetchTransactionsRequest{std::move(baseURL), session.livenessAttemptId.value_or(std::string()),
                                  TransactionsBodyRequest::forSession(session)};
}

std::string FetchTransactionsRequest::path() const {
  return std::string(kTransactionsPathStart) + livenessAttemptId + std::string(kTransactionsPathEnd);
}

std::string FetchTransactionsRequest::method() const { return std::string(kPost); }

std::optional<Json> FetchTransactionsRequest::parameters() const {
  return encodeParameters(transactionsBodyRequest.encode());
}

}  // namespace kiv
