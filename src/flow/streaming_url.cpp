#include "flow/streaming_url.hpp"

#include "platform/http/url.hpp"
#include "service/jwt_decoder.hpp"
#include "base/unicode_text.hpp"

namespace kiv {

std::string streamingURL(const std::optional<std::string>& serviceLocation) {
  if (serviceLocation) {
    const auto location = unicode::trimWhiteSpaceAndNewlines(*serviceLocation);
    if (!location.empty() && location.find(' ') == std::string_view::npos &&
        location.find("://") == std::string_view::npos) {
      return "wss://" + std::string(location) + "/ws";
    }
  }
  return std::string(kDefaultStreamingURL);
}

std::string streamingURLForMobileToken(std::string_view mobileToken) {
  return streamingURL(KivJWTDecoder::serviceLocation(mobileToken));
}

bool isStreamingURL(std::string_view text) { return url::parse(text).has_value(); }

}  // namespace kiv
