#include "service/transactions_format.hpp"

#include "service/record_coding.hpp"

namespace kiv {
namespace {

constexpr std::string_view kSessionId = "sessionId";
constexpr std::string_view kData = "data";

constexpr record_coding::TextFields<TransactionData, 5> kDataFields{{
    {"faceTecFaceScan", &TransactionData::faceTecFaceScan},
    {"faceTecAuditTrailImage", &TransactionData::faceTecAuditTrailImage},
    {"faceTecLowQualityAuditTrailImage", &TransactionData::faceTecLowQualityAuditTrailImage},
    {"payFaceKey", &TransactionData::payFaceKey},
    {"payFaceData", &TransactionData::payFaceData},
}};

}  // namespace

Json TransactionData::encode() const { return record_coding::encodeTexts(*this, kDataFields); }

Decoded<TransactionData> TransactionData::decode(const Json& value) {
  return record_coding::decodeTexts(value, kDataFields);
}

TransactionsBodyRequest TransactionsBodyRequest::forSession(const SessionResponse& session) {
  return TransactionsBodyRequest{session.id.value_or(std::string()), TransactionData{}};
}

Json TransactionsBodyRequest::encode() const {
  Json object = Json::object();
  object[std::string(kSessionId)] = sessionId;
  record_coding::put(object, kData, data);
  return object;
}

Decoded<TransactionsBodyRequest> TransactionsBodyRequest::decode(const Json& value) {
  auto reader = record_coding::Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  TransactionsBodyRequest body;
  body.sessionId = reader->requiredText(kSessionId);
  body.data = reader->record<TransactionData>(kData);
  return reader->finish(std::move(body));
}

}  // namespace kiv
