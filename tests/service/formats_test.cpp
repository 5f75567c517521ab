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

struct SessionCase {
  std::string name;
  std::string body;
  std::optional<SessionResponse> decoded;  // nullopt: decoding fails
  std::string failingKey = {};
};

void PrintTo(const SessionCase& c, std::ostream* out) { *out << c.name; }

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

class SessionDecodingTest : public ::testing::TestWithParam<SessionCase> {};

TEST_P(SessionDecodingTest, DecodesOrNamesTheFailingKey) {
  const auto& c = GetParam();
  auto result = SessionResponse::decode(parsed(c.body));
  if (c.decoded) {
    ASSERT_TRUE(result) << result.error().key << ": " << result.error().message;
    EXPECT_EQ(*result, *c.decoded);
  } else {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().key, c.failingKey) << result.error().message;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Answers, SessionDecodingTest,
    ::testing::Values(
        SessionCase{"Empty", "{}", SessionResponse{}}, SessionCase{"Full", kFullSession, kFull},
        SessionCase{"NullsAreAbsent",
                    R"({"id":null,"supplier":null,"remainingAttempts":null,"hasFingerprint":null,"sdk":null})",
                    SessionResponse{}},
        SessionCase{"EmptySupplierIsPresent", R"({"supplier":{}})", withSupplier({})},
        SessionCase{"UnknownKeysIgnored", R"({"extra":[1,{"x":true}],"supplier":{"more":1,"token":"t"}})",
                    withSupplier({{}, {}, "t", {}})},
        SessionCase{"AttemptsAsTextFails", R"({"remainingAttempts":"2"})", std::nullopt, "remainingAttempts"},
        // A number is one value however it is written: 2.0 and 1e0 are integers.
        SessionCase{"AttemptsWrittenAsIntegralFloat", R"({"remainingAttempts":2.0})", withAttempts(2)},
        SessionCase{"AttemptsWrittenAsFractionFails", R"({"remainingAttempts":2.5})", std::nullopt,
                    "remainingAttempts"},
        SessionCase{"AttemptsFloatBeyondInt64Fails", R"({"remainingAttempts":9.3e18})", std::nullopt,
                    "remainingAttempts"},
        SessionCase{"AttemptsBeyondInt64Fails", R"({"remainingAttempts":9223372036854775808})", std::nullopt,
                    "remainingAttempts"},
        SessionCase{"FingerprintAsTextFails", R"({"hasFingerprint":"true"})", std::nullopt, "hasFingerprint"},
        SessionCase{"IdAsNumberFails", R"({"id":7})", std::nullopt, "id"},
        SessionCase{"SupplierAsTextFails", R"({"supplier":"iproov"})", std::nullopt, "supplier"},
        SessionCase{"NestedWrongTypeFails", R"({"supplier":{"settings":{"filter":false}}})", std::nullopt,
                    "supplier.settings.filter"},
        SessionCase{"SdkWithoutPlatformFails", R"({"sdk":{"version":"1"}})", std::nullopt, "sdk.platform"},
        SessionCase{"SdkWithNullVersionFails", R"({"sdk":{"version":null,"platform":"iOS"}})", std::nullopt,
                    "sdk.version"},
        SessionCase{"ListFails", "[]", std::nullopt, ""}),
    [](const auto& param) { return param.param.name; });

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
