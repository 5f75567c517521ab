#include "sandbox/signing.hpp"

#include <sodium.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace kiv::sandbox {
namespace {

constexpr std::string_view kJwsHeader = R"({"alg":"EdDSA","typ":"JWT"})";
constexpr std::string_view kAlgorithm = "EdDSA";

void initialiseSodium() {
  // Safe to call from several threads and more than once.
  if (sodium_init() < 0) throw std::runtime_error("libsodium could not be initialised");
}

const unsigned char* bytesOf(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

}  // namespace

std::string base64UrlEncode(std::string_view bytes) {
  constexpr int kVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
  std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), bytesOf(bytes), bytes.size(), kVariant);
  text.resize(text.size() - 1);  // the encoder's terminating NUL
  return text;
}

std::optional<std::string> base64Decode(std::string_view text) {
  // Both alphabets map onto the URL-safe one; padding is optional.
  std::string normalised(text);
  while (!normalised.empty() && normalised.back() == '=') normalised.pop_back();
  for (char& c : normalised) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  std::string bytes(normalised.size(), '\0');
  std::size_t length = 0;
  const char* end = nullptr;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), normalised.data(),
                        normalised.size(), nullptr, &length, &end, sodium_base64_VARIANT_URLSAFE_NO_PADDING) != 0 ||
      end != normalised.data() + normalised.size()) {
    return std::nullopt;
  }
  bytes.resize(length);
  return bytes;
}

SigningKey SigningKey::generate() {
  initialiseSodium();
  SigningKey key;
  crypto_sign_keypair(key.publicKey_.data(), key.secretKey_.data());
  return key;
}

std::optional<SigningKey> SigningKey::fromSeed(std::string_view seed) {
  if (seed.size() != crypto_sign_SEEDBYTES) return std::nullopt;
  initialiseSodium();
  SigningKey key;
  crypto_sign_seed_keypair(key.publicKey_.data(), key.secretKey_.data(), bytesOf(seed));
  return key;
}

std::string SigningKey::publicKeyText() const {
  return base64UrlEncode({reinterpret_cast<const char*>(publicKey_.data()), publicKey_.size()});
}

std::string SigningKey::sign(std::string_view message) const {
  std::string signature(crypto_sign_BYTES, '\0');
  crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr, bytesOf(message), message.size(),
                       secretKey_.data());
  return signature;
}

std::string signCompactJws(std::string_view claimsJson, const SigningKey& key) {
  std::string signingInput = base64UrlEncode(kJwsHeader) + "." + base64UrlEncode(claimsJson);
  return signingInput + "." + base64UrlEncode(key.sign(signingInput));
}

std::expected<std::array<std::uint8_t, 32>, std::string> parsePublicKey(std::string_view text) {
  const auto bytes = base64Decode(text);
  if (!bytes) return std::unexpected("the key is not base64 text");
  if (bytes->size() != crypto_sign_PUBLICKEYBYTES) {
    return std::unexpected("the key has " + std::to_string(bytes->size()) + " bytes, an Ed25519 public key has 32");
  }
  std::array<std::uint8_t, 32> key{};
  std::copy(bytes->begin(), bytes->end(), key.begin());
  return key;
}

std::expected<std::string, std::string> verifyCompactJws(std::string_view jws,
                                                         const std::array<std::uint8_t, 32>& publicKey) {
  initialiseSodium();
  const auto firstDot = jws.find('.');
  const auto lastDot = jws.rfind('.');
  if (firstDot == std::string_view::npos || firstDot == lastDot || jws.find('.', firstDot + 1) != lastDot) {
    return std::unexpected("not a compact JWS: it needs exactly three dot-separated segments");
  }
  const auto header = base64Decode(jws.substr(0, firstDot));
  const auto payload = base64Decode(jws.substr(firstDot + 1, lastDot - firstDot - 1));
  const auto signature = base64Decode(jws.substr(lastDot + 1));
  if (!header || !payload || !signature) return std::unexpected("a segment is not base64url text");

  const auto headerJson = nlohmann::json::parse(*header, nullptr, false);
  if (!headerJson.is_object() || !headerJson.contains("alg") || headerJson["alg"] != kAlgorithm) {
    return std::unexpected("the header does not name the EdDSA algorithm");
  }
  if (signature->size() != crypto_sign_BYTES) return std::unexpected("the signature is not 64 bytes long");
  const std::string_view signingInput = jws.substr(0, lastDot);
  if (crypto_sign_verify_detached(bytesOf(*signature), bytesOf(signingInput), signingInput.size(), publicKey.data()) !=
      0) {
    return std::unexpected("the signature does not match the key");
  }
  return *payload;
}

}  // namespace kiv::sandbox
