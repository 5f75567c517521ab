#include "sandbox/signing.hpp"

#include <gtest/gtest.h>

#include "sandbox/mobile_token.hpp"
#include "service/jwt_decoder.hpp"

namespace kiv::sandbox {
namespace {

// Flips one character of the segment at `index` (0 header, 1 payload, 2
// signature) to another letter of the base64url alphabet.
std::string tampered(std::string jws, int index) {
  std::size_t start = 0;
  for (int i = 0; i < index; ++i) start = jws.find('.', start) + 1;
  char& c = jws[start + 2];
  c = c == 'A' ? 'B' : 'A';
  return jws;
}

TEST(Signing, ATamperedSegmentAnotherKeyOrAnotherAlgorithmDoesNotVerify) {
  const auto key = SigningKey::generate();
  const auto jws = signCompactJws(R"({"sessionId":"s-1","personId":"p-1"})", key);
  ASSERT_EQ(verifyCompactJws(jws, key.publicKey()), R"({"sessionId":"s-1","personId":"p-1"})");
  for (int segment : {0, 1, 2}) EXPECT_FALSE(verifyCompactJws(tampered(jws, segment), key.publicKey())) << segment;
  EXPECT_FALSE(verifyCompactJws(jws, SigningKey::generate().publicKey()));

  // A token that claims no algorithm must not pass on a matching signature.
  const std::string input = base64UrlEncode(R"({"alg":"none"})") + "." + base64UrlEncode("{}");
  EXPECT_FALSE(verifyCompactJws(input + "." + base64UrlEncode(key.sign(input)), key.publicKey()));
  EXPECT_FALSE(verifyCompactJws(jws + ".x", key.publicKey()));
}

// The exact claims, signed by the key given, as the SDK's decoder reads them.
TEST(MobileToken, CarriesIssuerAndSupplierAsTheSdkReadsThem) {
  const auto key = SigningKey::generate();
  const auto token = mintMobileToken("client-7", std::nullopt, key);
  EXPECT_EQ(verifyCompactJws(token, key.publicKey()),
            R"({"iss":"client-7","extraSettings":{"liveness":{"supplier":{"name":"iproov","product":"liveness"}}}})");
  EXPECT_EQ(KivJWTDecoder::issuer(token), "client-7");
  EXPECT_EQ(KivJWTDecoder::serviceLocation(token), std::nullopt);
  EXPECT_EQ(KivJWTDecoder::serviceLocation(mintMobileToken("c", std::string("eu.capture.example"))),
            "eu.capture.example");
  EXPECT_EQ(tokenIssuer("Bearer " + token), "client-7");
  EXPECT_EQ(tokenIssuer("opaque-token"), std::nullopt);
}

}  // namespace
}  // namespace kiv::sandbox
