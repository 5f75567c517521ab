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

SessionResponse fullSession() {
  SessionResponse s;
  s.id = "s-1";
  s.clientId = "c-1";
  s.user = SessionUser{"p-1", "u-1"};
  s.supplier = SessionSupplier{"iproov", "liveness", "tok", SessionSettings{"classic", "dk", "pk", "pf", "sk", "si"}};
  s.sdk = SessionSdk{"9.9", "android"};
  s.remainingAttempts = 2;
  s.hasFingerprint = false;
  s.expiredAt = "2024-01-01T00:00:00Z";
  s.createdAt = "not a date";
  s.livenessAttemptId = "a-1";
  s.signedResponse = "sig";
  return s;
}

const std::string kFullSession =
    R"({"id":"s-1","clientId":"c-1","user":{"personId":"p-1","userId":"u-1"},)"
    R"("supplier":{"type":"iproov","product":"liveness","token":"tok","settings":{"filter":"classic",)"
    R"("deviceKeyIdentifier":"dk","productionKey":"pk","publicFaceScanEncryptionKey":"pf","sessionKey":"sk",)"
    R"("sessionId":"si"}},"sdk":{"version":"9.9","platform":"android"},"remainingAttempts":2,)"
    R"("hasFingerprint":false,"expiredAt":"2024-01-01T00:00:00Z","createdAt":"not a date",)"
    R"("livenessAttemptId":"a-1","signedResponse":"sig"})";

SessionResponse withSupplier(SessionSupplier supplier) {
  SessionResponse s;
  s.supplier = std::move(supplier);
  return s;
}

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
        SessionCase{"Empty", "{}", SessionResponse{}}, SessionCase{"Full", kFullSession, fullSession()},
        SessionCase{"NullsAreAbsent",
                    R"({"id":null,"supplier":null,"remainingAttempts":null,"hasFingerprint":null,"sdk":null})",
                    SessionResponse{}},
        SessionCase{"EmptySupplierIsPresent", R"({"supplier":{}})", withSupplier({})},
        SessionCase{"UnknownKeysIgnored", R"({"extra":[1,{"x":true}],"supplier":{"more":1,"token":"t"}})",
                    withSupplier({{}, {}, "t", {}})},
        SessionCase{"AttemptsAsTextFails", R"({"remainingAttempts":"2"})", std::nullopt, "remainingAttempts"},
        SessionCase{"AttemptsAsFractionFails", R"({"remainingAttempts":2.5})", std::nullopt, "remainingAttempts"},
        SessionCase{"AttemptsBeyondInt64Fails", R"({"remainingAttempts":9223372036854775808})", std::nullopt,
                    "remainingAttempts"},
        SessionCase{"FingerprintAsTextFails", R"({"hasFingerprint":"true"})", std::nullopt, "hasFingerprint"},
        SessionCase{"FingerprintAsNumberFails", R"({"hasFingerprint":1})", std::nullopt, "hasFingerprint"},
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
  auto full = fullSession();
  EXPECT_EQ(json::dumpCompact(full.encode()), kFullSession);  // fixed key order
  EXPECT_EQ(SessionResponse::decode(full.encode()), full);

  auto sparse = withSupplier({{}, {}, "t", SessionSettings{}});
  EXPECT_EQ(json::dumpCompact(sparse.encode()), R"({"supplier":{"token":"t","settings":{}}})");
  EXPECT_EQ(SessionResponse::decode(sparse.encode()), sparse);
}

// --- Request records ------------------------------------------------------------

TEST(SessionFormatTest, SessionBodyWritesDataOnlyWhenPresent) {
  auto request = FetchSessionRequest::forPerson("https://b.example/", "p");
  EXPECT_FALSE(request.parameters()->contains("data"));
  request.sessionBodyRequest.data = SessionData{"dev"};
  EXPECT_EQ(request.parameters()->at("data"), parsed(R"({"deviceRequestInfo":"dev"})"));
  EXPECT_EQ(SessionBodyRequest::decode(*request.parameters()), request.sessionBodyRequest);
}

TEST(TransactionsFormatTest, BodyRoundTrips) {
  SessionResponse session;
  session.id = "s-1";
  auto request = FetchTransactionsRequest::forSession("https://b.example/", session);
  EXPECT_EQ(TransactionsBodyRequest::decode(*request.parameters()), request.transactionsBodyRequest);
}

TEST(TransactionsFormatTest, DataWritesOnlyPresentFieldsInOrder) {
  TransactionData data;
  data.payFaceData = "d";
  data.faceTecFaceScan = "f";
  EXPECT_EQ(json::dumpCompact(data.encode()), R"({"faceTecFaceScan":"f","payFaceData":"d"})");
  EXPECT_EQ(TransactionData::decode(parsed(R"({"faceTecFaceScan":"f","payFaceKey":null,"payFaceData":"d"})")), data);
  EXPECT_FALSE(TransactionData::decode(parsed(R"({"payFaceKey":1})")));
}

}  // namespace
}  // namespace kiv
