// Ed25519 keys and compact JWS tokens (RFC 7515, "alg":"EdDSA" as RFC 8037
// names it) for the sandbox: it signs every session's signedResponse and may
// sign the test mobile tokens it mints, so a host can check what it received.
//
//   auto key = kiv::sandbox::SigningKey::generate();
//   std::string jws = kiv::sandbox::signCompactJws(R"({"sessionId":"s1"})", key);
//   auto claims = kiv::sandbox::verifyCompactJws(jws, key.publicKey());
//   if (!claims) std::cerr << claims.error() << "\n";   // why it does not verify
//
// A public key travels as text: the 32 key bytes in base64url without padding
// (standard base64, with or without padding, is read too). Everything here is
// stateless or immutable once made, and safe from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::sandbox {

// base64url without padding, as JWS segments are written.
std::string base64UrlEncode(std::string_view bytes);
// The bytes of base64url or standard base64 text, padded or not; absent for
// anything else (including white space).
std::optional<std::string> base64Decode(std::string_view text);

class SigningKey {
 public:
  // A fresh key from the system's random source.
  static SigningKey generate();
  // The key that `seed` (32 bytes) determines: the same seed, the same key.
  static std::optional<SigningKey> fromSeed(std::string_view seed);

  const std::array<std::uint8_t, 32>& publicKey() const { return publicKey_; }
  std::string publicKeyText() const;
  // The 64-byte detached signature of `message`.
  std::string sign(std::string_view message) const;

 private:
  SigningKey() = default;
  std::array<std::uint8_t, 32> publicKey_{};
  std::array<std::uint8_t, 64> secretKey_{};
};

// header.payload.signature with the protected header {"alg":"EdDSA","typ":"JWT"}
// and `claimsJson` (the exact bytes, not re-serialised) as the payload.
std::string signCompactJws(std::string_view claimsJson, const SigningKey& key);

// The public key bytes of `text`, or why it is not a key.
std::expected<std::array<std::uint8_t, 32>, std::string> parsePublicKey(std::string_view text);

// The payload text of `jws` when it is a well-formed compact JWS whose header
// says EdDSA and whose signature verifies under `publicKey`; otherwise why
// not, in a short sentence.
std::expected<std::string, std::string> verifyCompactJws(std::string_view jws,
                                                         const std::array<std::uint8_t, 32>& publicKey);

}  // namespace kiv::sandbox
