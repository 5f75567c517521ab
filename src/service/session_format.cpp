#include "service/session_format.hpp"

#include "service/record_coding.hpp"

namespace kiv {
namespace {

using record_coding::put;
using record_coding::Reader;

constexpr std::string_view kVersion = "version";
constexpr std::string_view kPlatform = "platform";
constexpr std::string_view kDeviceRequestInfo = "deviceRequestInfo";
constexpr std::string_view kPersonId = "personId";
constexpr std::string_view kSdk = "sdk";
constexpr std::string_view kData = "data";
constexpr std::string_view kType = "type";
constexpr std::string_view kProduct = "product";
constexpr std::string_view kToken = "token";
constexpr std::string_view kSettings = "settings";
constexpr std::string_view kId = "id";
constexpr std::string_view kClientId = "clientId";
constexpr std::string_view kUser = "user";
constexpr std::string_view kSupplier = "supplier";
constexpr std::string_view kRemainingAttempts = "remainingAttempts";
constexpr std::string_view kHasFingerprint = "hasFingerprint";
constexpr std::string_view kExpiredAt = "expiredAt";
constexpr std::string_view kCreatedAt = "createdAt";
constexpr std::string_view kLivenessAttemptId = "livenessAttemptId";
constexpr std::string_view kSignedResponse = "signedResponse";

constexpr record_coding::TextFields<SessionUser, 2> kUserFields{{
    {kPersonId, &SessionUser::personId},
    {"userId", &SessionUser::userId},
}};

constexpr record_coding::TextFields<SessionSettings, 6> kSettingsFields{{
    {"filter", &SessionSettings::filter},
    {"deviceKeyIdentifier", &SessionSettings::deviceKeyIdentifier},
    {"productionKey", &SessionSettings::productionKey},
    {"publicFaceScanEncryptionKey", &SessionSettings::publicFaceScanEncryptionKey},
    {"sessionKey", &SessionSettings::sessionKey},
    {"sessionId", &SessionSettings::sessionId},
}};

}  // namespace

SessionSdk SessionSdk::current() {
  return SessionSdk{std::string(kSessionSdkVersion), std::string(kSessionSdkPlatform)};
}

Json SessionSdk::encode() const {
  Json object = Json::object();
  object[std::string(kVersion)] = version;
  object[std::string(kPlatform)] = platform;
  return object;
}

Decoded<SessionSdk> SessionSdk::decode(const Json& value) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  SessionSdk sdk;
  sdk.version = reader->requiredText(kVersion);
  sdk.platform = reader->requiredText(kPlatform);
  return reader->finish(std::move(sdk));
}

Json SessionData::encode() const {
  Json object = Json::object();
  put(object, kDeviceRequestInfo, deviceRequestInfo);
  return object;
}

Decoded<SessionData> SessionData::decode(const Json& value) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  SessionData data;
  data.deviceRequestInfo = reader->text(kDeviceRequestInfo);
  return reader->finish(std::move(data));
}

Json SessionBodyRequest::encode() const {
  Json object = Json::object();
  object[std::string(kPersonId)] = personId;
  object[std::string(kSdk)] = sdk.encode();
  put(object, kData, data);
  return object;
}

Decoded<SessionBodyRequest> SessionBodyRequest::decode(const Json& value) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  SessionBodyRequest body;
  body.personId = reader->requiredText(kPersonId);
  body.sdk = reader->requiredRecord<SessionSdk>(kSdk);
  body.data = reader->record<SessionData>(kData);
  return reader->finish(std::move(body));
}

Json SessionUser::encode() const { return record_coding::encodeTexts(*this, kUserFields); }

Decoded<SessionUser> SessionUser::decode(const Json& value) { return record_coding::decodeTexts(value, kUserFields); }

Json SessionSettings::encode() const { return record_coding::encodeTexts(*this, kSettingsFields); }

Decoded<SessionSettings> SessionSettings::decode(const Json& value) {
  return record_coding::decodeTexts(value, kSettingsFields);
}

Json SessionSupplier::encode() const {
  Json object = Json::object();
  put(object, kType, type);
  put(object, kProduct, product);
  put(object, kToken, token);
  put(object, kSettings, settings);
  return object;
}

Decoded<SessionSupplier> SessionSupplier::decode(const Json& value) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  SessionSupplier supplier;
  supplier.type = reader->text(kType);
  supplier.product = reader->text(kProduct);
  supplier.token = reader->text(kToken);
  supplier.settings = reader->record<SessionSettings>(kSettings);
  return reader->finish(std::move(supplier));
}

Json SessionResponse::encode() const {
  Json object = Json::object();
  put(object, kId, id);
  put(object, kClientId, clientId);
  put(object, kUser, user);
  put(object, kSupplier, supplier);
  put(object, kSdk, sdk);
  put(object, kRemainingAttempts, remainingAttempts);
  put(object, kHasFingerprint, hasFingerprint);
  put(object, kExpiredAt, expiredAt);
  put(object, kCreatedAt, createdAt);
  put(object, kLivenessAttemptId, livenessAttemptId);
  put(object, kSignedResponse, signedResponse);
  return object;
}

Decoded<SessionResponse> SessionResponse::decode(const Json& value) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  SessionResponse response;
  response.id = reader->text(kId);
  response.clientId = reader->text(kClientId);
  response.user = reader->record<SessionUser>(kUser);
  response.supplier = reader->record<SessionSupplier>(kSupplier);
  response.sdk = reader->record<SessionSdk>(kSdk);
  response.remainingAttempts = reader->integer(kRemainingAttempts);
  response.hasFingerprint = reader->boolean(kHasFingerprint);
  response.expiredAt = reader->text(kExpiredAt);
  response.createdAt = reader->text(kCreatedAt);
  response.livenessAttemptId = reader->text(kLivenessAttemptId);
  response.signedResponse = reader->text(kSignedResponse);
  return reader->finish(std::move(response));
}

}  // namespace kiv
