// The session the backend creates for one liveness attempt: the body we send
// to create it and the answer we get back.
//
// Answers are read leniently and strictly at once: every key may be absent or
// null (the field is then absent) and unknown keys are ignored, but a key
// holding the wrong JSON type fails the whole decoding, because the backend
// never sends one and a half-read session must not start a capture.
//
//   auto session = SessionResponse::decode(*json::parse(body));
//   if (!session) log(session.error().key);            // e.g. "supplier.token"
//   Json cached = session->encode();                   // absent fields omitted
//
// Every record encodes with its keys in a fixed order and omits absent fields;
// encode() followed by decode() gives the same value back.
#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>

#include "base/json.hpp"

namespace kiv {

// The SDK's own version as the backend sees it in the session body.
inline constexpr std::string_view kSessionSdkVersion = "3.2.1";
// The platform text the backend keys its session handling on. It names the
// mobile platform this SDK's backend contract was made for, whatever the host.
inline constexpr std::string_view kSessionSdkPlatform = "iOS";

// Why a JSON value could not be read into a record: the dotted key path
// ("" for the value itself) and what was wrong there.
using DecodeError = json::FieldError;

template <typename T>
using Decoded = std::expected<T, DecodeError>;

// Both keys are required whenever the object is present.
struct SessionSdk {
  std::string version;
  std::string platform;

  // The SDK as this build describes itself: "3.2.1" on "iOS".
  static SessionSdk current();

  Json encode() const;
  static Decoded<SessionSdk> decode(const Json& value);
  bool operator==(const SessionSdk&) const = default;
};

struct SessionData {
  std::optional<std::string> deviceRequestInfo;

  Json encode() const;
  static Decoded<SessionData> decode(const Json& value);
  bool operator==(const SessionData&) const = default;
};

// What the SDK posts to create a session. `personId` and `sdk` are always
// written; `data` only when present (never as null).
struct SessionBodyRequest {
  std::string personId;
  SessionSdk sdk;
  std::optional<SessionData> data;

  Json encode() const;
  static Decoded<SessionBodyRequest> decode(const Json& value);
  bool operator==(const SessionBodyRequest&) const = default;
};

struct SessionUser {
  std::optional<std::string> personId;
  std::optional<std::string> userId;

  Json encode() const;
  static Decoded<SessionUser> decode(const Json& value);
  bool operator==(const SessionUser&) const = default;
};

struct SessionSettings {
  std::optional<std::string> filter;
  std::optional<std::string> deviceKeyIdentifier;
  std::optional<std::string> productionKey;
  std::optional<std::string> publicFaceScanEncryptionKey;
  std::optional<std::string> sessionKey;
  std::optional<std::string> sessionId;

  Json encode() const;
  static Decoded<SessionSettings> decode(const Json& value);
  bool operator==(const SessionSettings&) const = default;
};

struct SessionSupplier {
  std::optional<std::string> type;
  std::optional<std::string> product;
  std::optional<std::string> token;
  std::optional<SessionSettings> settings;

  Json encode() const;
  static Decoded<SessionSupplier> decode(const Json& value);
  bool operator==(const SessionSupplier&) const = default;
};

struct SessionResponse {
  std::optional<std::string> id;
  std::optional<std::string> clientId;
  std::optional<SessionUser> user;
  std::optional<SessionSupplier> supplier;
  std::optional<SessionSdk> sdk;
  std::optional<std::int64_t> remainingAttempts;
  std::optional<bool> hasFingerprint;
  std::optional<std::string> expiredAt;  // date text, kept as received
  std::optional<std::string> createdAt;  // date text, kept as received
  std::optional<std::string> livenessAttemptId;
  std::optional<std::string> signedResponse;

  Json encode() const;
  static Decoded<SessionResponse> decode(const Json& value);
  bool operator==(const SessionResponse&) const = default;
};

}  // namespace kiv
