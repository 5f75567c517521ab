#include "service/jwt_decoder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/mobile_token.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::base64Url;
std::string token(std::string_view payload) { return testing::mobileToken(payload); }

class JWTDecoderTest : public testing::PlatformTest {};

TEST_F(JWTDecoderTest, IssuerFailureGivesAbsentAfterOneQuotedLine) {
  const std::string invalid = R"("Invalid JWT token")", undecodable = R"("Failed to decode payload")",
                    notJson = R"("Failed to parse JSON payload")",
                    noIssuer = R"("Issuer (iss) claim not found in the token")";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"head.payload", invalid},
      {"a.b.c.d", invalid},
      {"..", invalid},
      {"h.p%y.s", undecodable},
      {"h.abcde.s", undecodable},  // one character past a quantum
      {"h." + base64Url("{\"iss\":\"\xFF\"}") + ".s", undecodable},
      {token("not json"), notJson},
      {token(R"(["iss"])"), notJson},
      {token(R"({"sub":"x"})"), noIssuer},
      {token(R"({"iss":42})"), noIssuer},
      {token(R"({"iss":null})"), noIssuer}};
  std::vector<std::string> lines;
  for (const auto& [t, line] : cases) {
    EXPECT_EQ(KivJWTDecoder::issuer(t), std::nullopt) << t;
    lines.push_back(line);
  }
  EXPECT_EQ(consoleLines(), lines);
}

TEST_F(JWTDecoderTest, IssuerDropsEmptyPiecesAndNeverChecksTheSignature) {
  const std::string payload = base64Url(R"({"iss":"client-7","exp":1})");
  for (const std::string& t :
       {"h." + payload + ".s", "h.." + payload + ".s", ".h." + payload + ".s..", "h." + payload + ".!!not-base64!!"}) {
    EXPECT_EQ(KivJWTDecoder::issuer(t), "client-7") << t;
  }
  EXPECT_TRUE(consoleLines().empty());
}

// 16 and 17 bytes whose encodings use both URL-alphabet characters; without
// padding they are 22 and 23 characters long.
TEST(JWTDecoderBase64, PadsSegmentsToAQuantumAndMapsTheUrlAlphabet) {
  for (const std::string& bytes : {std::string(16, '\xFB'), std::string(15, '\xFF') + "\xFB\xEF"}) {
    const std::string segment = base64Url(bytes);
    ASSERT_EQ(segment.size(), bytes.size() == 16 ? 22u : 23u);
    ASSERT_NE(segment.find_first_of("-_"), std::string::npos);
    EXPECT_EQ(KivJWTDecoder::base64UrlDecode(segment), bytes);
  }
  EXPECT_EQ(KivJWTDecoder::base64UrlDecode("QUJD"), "ABC");
  EXPECT_EQ(KivJWTDecoder::base64UrlDecode("QQ=="), "A");
  EXPECT_EQ(KivJWTDecoder::base64UrlDecode(""), "");
  for (std::string_view invalid : {"QUJDR", "QU JD", "QQ==QQ", "QR", "QUJD\n", "Q.=="}) {
    EXPECT_EQ(KivJWTDecoder::base64UrlDecode(invalid), std::nullopt) << invalid;
  }
}

// The supplier is read strictly (both names, text values) and silently; the
// token's pieces are found as for the issuer.
TEST_F(JWTDecoderTest, ServiceLocationReadsTheSupplierStrictlyAndSilently) {
  using namespace std::string_literals;
  const std::string supplier = R"({"extraSettings":{"liveness":{"supplier":{"name":"iproov","product":"liveness")";
  EXPECT_EQ(
      KivJWTDecoder::serviceLocation(token(R"({"x":1,"extraSettings":{"liveness":{"supplier":{"name":"iproov",)"
                                           R"("product":"liveness","serviceLocation":"eu.rp.example"},"y":2}}})")),
      "eu.rp.example");
  for (const std::string& bad :
       {supplier + "}}}}", supplier + R"(,"serviceLocation":7}}}})",
        R"({"extraSettings":{"liveness":{"supplier":{"name":"iproov","serviceLocation":"h"}}}})"s,
        R"({"extraSettings":{"liveness":{"supplier":{"product":"p","serviceLocation":"h"}}}})"s,
        R"({"extraSettings":{"liveness":{"supplier":{"name":1,"product":"p","serviceLocation":"h"}}}})"s,
        R"({"extraSettings":null})"s, R"({"extraSettings":{"liveness":null}})"s, R"({"extraSettings":"x"})"s,
        R"([{"extraSettings":{}}])"s, "not json"s}) {
    EXPECT_EQ(KivJWTDecoder::serviceLocation(token(bad)), std::nullopt) << bad;
  }
  EXPECT_TRUE(consoleLines().empty());
}

}  // namespace
}  // namespace kiv
