#include "sandbox/session_minter.hpp"

#include <sodium.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kiv::sandbox {
namespace {

constexpr std::string_view kSupplierType = "iproov";
constexpr std::string_view kSupplierProduct = "liveness";
constexpr std::string_view kSignerName = "kiv-sandbox";

std::string hex(const unsigned char* bytes, std::size_t size) {
  std::string text(size * 2 + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), bytes, size);
  text.pop_back();
  return text;
}

// The same person always gets the same user id, as a real backend's user
// table would give.
std::string userIdFor(std::string_view personId) {
  std::array<unsigned char, 8> digest{};
  crypto_generichash(digest.data(), digest.size(), reinterpret_cast<const unsigned char*>(personId.data()),
                     personId.size(), nullptr, 0);
  return "usr_" + hex(digest.data(), digest.size());
}

std::string vendorToken() {
  std::array<unsigned char, 24> bytes{};
  randombytes_buf(bytes.data(), bytes.size());
  return hex(bytes.data(), bytes.size());
}

}  // namespace

std::string randomUuid() {
  std::array<unsigned char, 16> bytes{};
  randombytes_buf(bytes.data(), bytes.size());
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);
  const std::string digits = hex(bytes.data(), bytes.size());
  return digits.substr(0, 8) + "-" + digits.substr(8, 4) + "-" + digits.substr(12, 4) + "-" + digits.substr(16, 4) +
         "-" + digits.substr(20);
}

std::string isoTime(std::chrono::system_clock::time_point time) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(milliseconds));
  return text.data();
}

MintedSession mintSession(const SessionRequest& request, const SessionTemplate& shape, const SigningKey& key,
                          std::chrono::system_clock::time_point now) {
  if (sodium_init() < 0) throw std::runtime_error("libsodium could not be initialised");
  MintedSession minted;
  minted.record = {.sessionId = randomUuid(),
                   .livenessAttemptId = randomUuid(),
                   .personId = request.personId,
                   .clientId = request.clientId};

  const nlohmann::ordered_json claims{
      {"iss", kSignerName},
      {"sessionId", minted.record.sessionId},
      {"livenessAttemptId", minted.record.livenessAttemptId},
      {"personId", request.personId},
      {"iat", std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count()},
  };
  minted.signedResponse = signCompactJws(claims.dump(), key);

  const nlohmann::ordered_json session{
      {"id", minted.record.sessionId},
      {"clientId", request.clientId},
      {"user", {{"personId", request.personId}, {"userId", userIdFor(request.personId)}}},
      {"supplier",
       {{"type", kSupplierType},
        {"product", kSupplierProduct},
        {"token", vendorToken()},
        {"settings", {{"filter", shape.filter}}}}},
      {"sdk", {{"version", request.sdkVersion.value_or("")}, {"platform", request.sdkPlatform.value_or("")}}},
      {"remainingAttempts", shape.remainingAttempts},
      {"hasFingerprint", false},
      {"createdAt", isoTime(now)},
      {"expiredAt", isoTime(now + shape.lifetime)},
      {"livenessAttemptId", minted.record.livenessAttemptId},
      {"signedResponse", minted.signedResponse},
  };
  minted.json = session.dump();
  return minted;
}

}  // namespace kiv::sandbox
