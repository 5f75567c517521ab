// Reads the two values the SDK needs out of the host's mobile token, a JSON
// Web Token: the issuer claim (the analytics client identifier) and the
// capture supplier's service location (the streaming host). The token is
// never verified; a garbage signature does not matter.
//
//   auto clientId = KivJWTDecoder::issuer(mobileToken).value_or(mobileToken);
//   auto location = KivJWTDecoder::serviceLocation(mobileToken);  // silent
//
// Stateless; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv {

class KivJWTDecoder {
 public:
  // The "iss" claim when it is text. Otherwise absent, after one console
  // line in quoted debug form saying why.
  static std::optional<std::string> issuer(std::string_view token);

  // extraSettings.liveness.supplier.serviceLocation of the payload, or
  // absent for any reason (no three pieces, undecodable payload, a required
  // record field missing or of the wrong type). Never writes to the console.
  static std::optional<std::string> serviceLocation(std::string_view token);

  // The bytes of one base64url token segment, padded to a multiple of four,
  // or absent when it is not strict base64 once the URL alphabet is mapped
  // back. The bytes need not be UTF-8.
  static std::optional<std::string> base64UrlDecode(std::string_view segment);
};

}  // namespace kiv
