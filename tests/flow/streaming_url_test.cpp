#include "flow/streaming_url.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/mobile_token.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

const std::string kDefault(kDefaultStreamingURL);

struct LocationCase {
  std::string name;
  std::optional<std::string> serviceLocation;
  std::string url;
};
void PrintTo(const LocationCase& c, std::ostream* os) { *os << c.name; }

class ServiceLocation : public ::testing::TestWithParam<LocationCase> {};

TEST_P(ServiceLocation, GivesTheStreamingURL) { EXPECT_EQ(streamingURL(GetParam().serviceLocation), GetParam().url); }

INSTANTIATE_TEST_SUITE_P(
    Locations, ServiceLocation,
    ::testing::Values(LocationCase{"TrimmedOfBlanksAndLineBreaks", "  eu \r\n\t", "wss://eu/ws"},
                      LocationCase{"TrimmedOfUnicodeWhiteSpace", "\u00a0eu.rp.example\u2028", "wss://eu.rp.example/ws"},
                      LocationCase{"HostWithPort", "eu.rp.example:8443", "wss://eu.rp.example:8443/ws"},
                      LocationCase{"Absent", std::nullopt, kDefault}, LocationCase{"OnlyWhiteSpace", " \n ", kDefault},
                      LocationCase{"InnerBlank", "eu west", kDefault},
                      LocationCase{"AlreadyAURL", "wss://eu", kDefault},
                      LocationCase{"AnySchemeSeparator", "eu://x", kDefault},
                      // Only a blank counts; other inner white space is left for the URL check.
                      LocationCase{"InnerTab", "eu\twest", "wss://eu\twest/ws"}),
    [](const auto& testInfo) { return testInfo.param.name; });

class MobileTokenLocation : public testing::PlatformTest {};

TEST_F(MobileTokenLocation, ComesFromTheTokensSupplierServiceLocation) {
  const std::string token =
      testing::mobileToken(R"({"extraSettings":{"liveness":{"supplier":{"name":"iproov","product":"liveness",)"
                           R"("serviceLocation":" eu.capture.example "}}}})");
  EXPECT_EQ(streamingURLForMobileToken(token), "wss://eu.capture.example/ws");
  EXPECT_EQ(streamingURLForMobileToken("not-a-token"), kDefault);
}

}  // namespace
}  // namespace kiv
