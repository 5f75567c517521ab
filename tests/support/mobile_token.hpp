// Mobile tokens for tests: a JWT-shaped text around any payload (the SDK
// reads the payload and never checks the signature).
//
//   mobileToken(R"({"iss":"acme"})")   ->  "eyJhbGciOiJFZERTQSJ9.eyJpc3MiOiJhY21lIn0.c2ln"
#pragma once

#include <sodium.h>

#include <string>
#include <string_view>

namespace kiv::testing {

inline std::string base64Url(std::string_view bytes) {
  std::string out(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING), '\0');
  sodium_bin2base64(out.data(), out.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  out.resize(out.find('\0'));
  return out;
}

inline std::string mobileToken(std::string_view payloadJson) {
  return base64Url(R"({"alg":"EdDSA","typ":"JWT"})") + "." + base64Url(payloadJson) + ".c2ln";
}

}  // namespace kiv::testing
