// Test mobile tokens: what the maker's backend would hand a host, made
// here so a host can set up the SDK against the sandbox.
//
//   std::string token = kiv::sandbox::mintMobileToken("client-7", "eu.capture.example");
//   tokenIssuer(token);   // "client-7"
//
// The token is a JWT (header.payload.signature, base64url without padding)
// whose payload carries "iss" and extraSettings.liveness.supplier with the
// capture supplier "iproov", product "liveness" and the service location
// when one is given. The SDK reads the payload and never checks the
// signature; it is an Ed25519 signature all the same, by the key given or by
// a throwaway one.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sandbox/signing.hpp"

namespace kiv::sandbox {

std::string mintMobileToken(std::string_view issuer, const std::optional<std::string>& serviceLocation,
                            const SigningKey& key);
std::string mintMobileToken(std::string_view issuer, const std::optional<std::string>& serviceLocation = std::nullopt);

// The "iss" text of a token's payload, without checking its signature;
// absent when the token is not a JWT or has no text issuer. A leading
// "Bearer " is ignored.
std::optional<std::string> tokenIssuer(std::string_view token);

}  // namespace kiv::sandbox
