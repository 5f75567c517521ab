// The transaction the SDK posts once a capture has ended, registering the
// attempt's outcome with the backend.
#pragma once

#include <optional>
#include <string>

#include "base/json.hpp"
#include "service/session_format.hpp"

namespace kiv {

// Each field is written only when present; the flow sends all five absent,
// so `data` goes out as an empty object.
struct TransactionData {
  std::optional<std::string> faceTecFaceScan;
  std::optional<std::string> faceTecAuditTrailImage;
  std::optional<std::string> faceTecLowQualityAuditTrailImage;
  std::optional<std::string> payFaceKey;
  std::optional<std::string> payFaceData;

  Json encode() const;
  static Decoded<TransactionData> decode(const Json& value);
  bool operator==(const TransactionData&) const = default;
};

// `sessionId` is always written, empty when the session had no id.
struct TransactionsBodyRequest {
  std::string sessionId;
  std::optional<TransactionData> data;

  // The body for the attempt of `session`: its id (or "") and empty data.
  static TransactionsBodyRequest forSession(const SessionResponse& session);

  Json encode() const;
  static Decoded<TransactionsBodyRequest> decode(const Json& value);
  bool operator==(const TransactionsBodyRequest&) const = default;
};

}  // namespace kiv
