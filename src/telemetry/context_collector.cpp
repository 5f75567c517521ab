#include "telemetry/context_collector.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <mutex>
#include <random>

#include "base/no_destructor.hpp"
#include "telemetry/installed_device.hpp"

namespace kiv {

std::string uuidText(const std::array<std::uint8_t, 16>& uuid) {
  std::string text;
  text.reserve(36);
  char digits[3];
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(uuid[i]));
    text += digits;
  }
  return text;
}

std::string randomUuidText() {
  static NoDestructor<std::mutex> mutex;
  static NoDestructor<std::random_device> device;
  std::array<std::uint8_t, 16> bytes{};
  {
    std::lock_guard lock(*mutex);
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
      const auto word = (*device)();
      for (std::size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<std::uint8_t>(word >> (8 * k));
    }
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  return uuidText(bytes);
}

std::string KivContextCollector::hashedAdvertisingIdentifier() {
  const std::string identifier = uuidText(installedDevice()->advertisingIdentifier());
  // Left to itself libcrypto registers its teardown with atexit on first
  // use, which may come after the SDK's exit hooks and so run before them,
  // under a pool task still hashing.
  static const bool initialised = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
  (void)initialised;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(identifier.data(), identifier.size(), digest.data(), &size, EVP_md5(), nullptr) != 1) return {};
  std::string hex;
  hex.reserve(2 * size);
  char digits[3];
  for (unsigned int i = 0; i < size; ++i) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(digest[i]));
    hex += digits;
  }
  return hex;
}

std::string KivContextCollector::systemVersion() { return installedDevice()->systemVersion(); }

std::optional<std::string> KivContextCollector::bundleIdentifier() {
  return installedDevice()->hostBundle().identifier;
}

}  // namespace kiv
