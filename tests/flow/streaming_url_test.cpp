#include "flow/streaming_url.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "platform/http/url.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

const std::string kDefault(kDefaultStreamingURL);

struct LocationCase {
  std::string name;
  std::optional<std::string> serviceLocation;
  std::string url;
  bool isURL = true;  // passes the check before launch
};
void PrintTo(const LocationCase& c, std::ostream* os) { *os << c.name; }

class ServiceLocation : public ::testing::TestWithParam<LocationCase> {};

TEST_P(ServiceLocation, GivesTheStreamingURL) { EXPECT_EQ(streamingURL(GetParam().serviceLocation), GetParam().url); }

INSTANTIATE_TEST_SUITE_P(
    Locations, ServiceLocation,
    ::testing::Values(LocationCase{"Host", "eu", "wss://eu/ws"},
                      LocationCase{"TrimmedOfBlanksAndLineBreaks", "  eu \r\n\t", "wss://eu/ws"},
                      LocationCase{"TrimmedOfUnicodeWhiteSpace", "\u00a0eu.rp.example\u2028", "wss://eu.rp.example/ws"},
                      LocationCase{"HostWithPort", "eu.rp.example:8443", "wss://eu.rp.example:8443/ws"},
                      LocationCase{"Absent", std::nullopt, kDefault}, LocationCase{"Empty", "", kDefault},
                      LocationCase{"OnlyWhiteSpace", " \n ", kDefault}, LocationCase{"InnerBlank", "eu west", kDefault},
                      LocationCase{"AlreadyAURL", "wss://eu", kDefault},
                      LocationCase{"AnySchemeSeparator", "eu://x", kDefault},
                      // Only a blank counts; other inner white space is left for the URL check.
                      LocationCase{"InnerTab", "eu\twest", "wss://eu\twest/ws", false},
                      LocationCase{"MalformedHost", "[eu", "wss://[eu/ws", false},
                      LocationCase{"PortOutOfRange", "eu:99999", "wss://eu:99999/ws", false}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST(DefaultStreamingURL, IsASecureWebSocketEndpoint) {
  auto parts = url::parse(kDefaultStreamingURL);
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->scheme, "wss");
  EXPECT_EQ(parts->path, "/ws");
}

class MobileTokenLocation : public testing::PlatformTest {};

TEST_F(MobileTokenLocation, ComesFromTheTokensSupplierServiceLocation) {
  // Payload: {"extraSettings":{"liveness":{"supplier":{"name":"iproov","product":"liveness",
  //            "serviceLocation":" eu.capture.example "}}}}
  const std::string token =
      "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9."
      "eyJleHRyYVNldHRpbmdzIjp7ImxpdmVuZXNzIjp7InN1cHBsaWVyIjp7Im5hbWUiOiJpcHJvb3YiLCJwcm9kdWN0IjoibGl2ZW5lc3MiLCJzZXJ2"
      "aWNlTG9jYXRpb24iOiIgZXUuY2FwdHVyZS5leGFtcGxlICJ9fX19.c2ln";
  EXPECT_EQ(streamingURLForMobileToken(token), "wss://eu.capture.example/ws");
  EXPECT_EQ(streamingURLForMobileToken("not-a-token"), kDefault);
  EXPECT_EQ(streamingURLForMobileToken(""), kDefault);
}

}  // namespace
}  // namespace kiv
