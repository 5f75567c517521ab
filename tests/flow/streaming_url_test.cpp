#include "flow/streaming_url.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

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

}  // namespace
}  // namespace kiv
