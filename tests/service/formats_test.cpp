#include <gtest/gtest.h>

#include <string>

#include "service/api_request.hpp"
#include "service/session_format.hpp"
#include "service/transactions_format.hpp"

namespace kiv {
namespace {

Json parsed(const std::string& text) {
  auto value = json::parse(text);
  EXPECT_TRUE(value) << text;
  return value.value_or(Json());
}

// --- Session answers: lenient on presence, strict on types -------------------

// kFullSession as a record, fields in declaration order.
const SessionResponse kFull{
    "s-1",
    "c-1",
    SessionUser{"p-1", "u-1"},
    SessionSupplier{"iproov", "liveness", "tok", SessionSettings{"classic", "dk", "pk", "pf", "sk", "si"}},
    SessionSdk{"9.9", "android"},
    2,
    false,
    "2024-01-01T00:00:00Z",
    "not a date",
    "a-1",
    "sig"};

SessionResponse withSupplier(SessionSupplier supplier) {
  SessionResponse s;
  s.supplier = std::move(supplier);
  return s;
}

SessionResponse withAttempts(std::int64_t attempts) {
  SessionResponse s;
  s.remainingAttempts = attempts;
  return s;
}

const std::string kFullSession =
    R"({"id":"s-1","clientId":"c-1","user":{"personId":"p-1","userId":"u-1"},)"
    R"("supplier":{"type":"iproov","product":"liveness","token":"tok","settings":{"filter":"classic",)"
    R"("deviceKeyIdentifier":"dk","productionKey":"pk","publicFaceScanEncryptionKey":"pf","sessionKey":"sk",)"
    R"("sessionId":"si"}},"sdk":{"version":"9.9","platform":"android"},"remainingAttempts":2,)"
    R"("hasFingerprint":false,"expiredAt":"2024-01-01T00:00:00Z","createdAt":"not a date",)"
    R"("livenessAttemptId":"a-1","signedResponse":"sig"})";

// Lenient on presence, strict on types: decodes, or names the failing key.
TEST(SessionDecodingTest, DecodesOrNamesTheFailingKey) {
  const std::vector<std::pair<std::string, SessionResponse>> decoded{
      {"{}", SessionResponse{}},
      {kFullSession, kFull},
      {R"({"id":null,"supplier":null,"remainingAttempts":null,"hasFingerprint":null,"sdk":null})", SessionResponse{}},
      {R"({"supplier":{}})", withSupplier({})},
      {R"({"extra":[1,{"x":true}],"supplier":{"more":1,"token":"t"}})", withSupplier({{}, {}, "t", {}})},
      // A number is one value however it is written: 2.0 and 1e0 are integers.
      {R"({"remainingAttempts":2.0})", withAttempts(2)}};
  for (const auto& [body, session] : decoded) {
    const auto result = SessionResponse::decode(parsed(body));
    ASSERT_TRUE(result) << result.error().key << ": " << result.error().message;
    EXPECT_EQ(*result, session);
  }
  const std::vector<std::pair<std::string, std::string>> failing{
      {R"({"remainingAttempts":"2"})", "remainingAttempts"},
      {R"({"remainingAttempts":2.5})", "remainingAttempts"},
      {R"({"remainingAttempts":9.3e18})", "remainingAttempts"},
      {R"({"remainingAttempts":9223372036854775808})", "remainingAttempts"},
      {R"({"hasFingerprint":"true"})", "hasFingerprint"},
      {R"({"id":7})", "id"},
      {R"({"supplier":"iproov"})", "supplier"},
      {R"({"supplier":{"settings":{"filter":false}}})", "supplier.settings.filter"},
      {R"({"sdk":{"version":"1"}})", "sdk.platform"},
      {R"({"sdk":{"version":null,"platform":"iOS"}})", "sdk.version"},
      {"[]", ""}};
  for (const auto& [body, key] : failing) {
    const auto result = SessionResponse::decode(parsed(body));
    ASSERT_FALSE(result) << body;
    EXPECT_EQ(result.error().key, key) << result.error().message;
  }
}

TEST(SessionFormatTest, EncodingOmitsAbsentFieldsAndRoundTrips) {
  EXPECT_EQ(json::dumpCompact(kFull.encode()), kFullSession);  // fixed key order
  EXPECT_EQ(SessionResponse::decode(kFull.encode()), kFull);

  const auto sparse = withSupplier({{}, {}, "t", SessionSettings{}});
  EXPECT_EQ(json::dumpCompact(sparse.encode()), R"({"supplier":{"token":"t","settings":{}}})");
  EXPECT_EQ(SessionResponse::decode(sparse.encode()), sparse);
}

// --- Request records ------------------------------------------------------------

TEST(RequestRecordsTest, BodiesWriteOnlyPresentPartsInOrderAndRoundTrip) {
  auto session = FetchSessionRequest::forPerson("https://b.example/", "p");
  EXPECT_FALSE(session.parameters()->contains("data"));
  session.sessionBodyRequest.data = SessionData{"dev"};
  EXPECT_EQ(session.parameters()->at("data"), parsed(R"({"deviceRequestInfo":"dev"})"));
  EXPECT_EQ(SessionBodyRequest::decode(*session.parameters()), session.sessionBodyRequest);

  auto transactions = FetchTransactionsRequest::forSession("https://b.example/", kFull);
  EXPECT_EQ(TransactionsBodyRequest::decode(*transactions.parameters()), transactions.transactionsBodyRequest);
  TransactionData data;
  data.payFaceData = "d";
  data.faceTecFaceScan = "f";
  EXPECT_EQ(json::dumpCompact(data.encode()), R"({"faceTecFaceScan":"f","payFaceData":"d"})");
  EXPECT_EQ(TransactionData::decode(parsed(R"({"faceTecFaceScan":"f","payFaceKey":null,"payFaceData":"d"})")), data);
  EXPECT_FALSE(TransactionData::decode(parsed(R"({"payFaceKey":1})")));
}

}  // namespace
}  // namespace kiv
