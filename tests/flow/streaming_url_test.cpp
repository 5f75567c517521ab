#include "flow/streaming_url.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace kiv {
namespace {

const std::string kDefault(kDefaultStreamingURL);

TEST(ServiceLocation, GivesTheStreamingURL) {
  const std::vector<std::pair<std::optional<std::string>, std::string>> cases{
      {"  eu \r\n\t", "wss://eu/ws"},                           // trimmed of blanks and line breaks
      {"\u00a0eu.rp.example\u2028", "wss://eu.rp.example/ws"},  // and of Unicode white space
      {"eu.rp.example:8443", "wss://eu.rp.example:8443/ws"},
      {std::nullopt, kDefault},
      {" \n ", kDefault},
      {"eu west", kDefault},
      {"wss://eu", kDefault},  // already a URL
      {"eu://x", kDefault},
      // Only a blank counts; other inner white space is left for the URL check.
      {"eu\twest", "wss://eu\twest/ws"}};
  for (const auto& [location, url] : cases) EXPECT_EQ(streamingURL(location), url) << location.value_or("(absent)");
}

}  // namespace
}  // namespace kiv
