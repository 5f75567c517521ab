// Single values about the device and host for the SDK's start event.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kiv {

class KivContextCollector {
 public:
  // MD5 of the advertising identifier's upper-case UUID text, as 32
  // lower-case hexadecimal digits; empty if it cannot be computed.
  static std::string hashedAdvertisingIdentifier();
  static std::string systemVersion();
  static std::optional<std::string> bundleIdentifier();
};

// The upper-case 8-4-4-4-12 text of a UUID, as a phone formats it.
std::string uuidText(const std::array<std::uint8_t, 16>& uuid);

// A random (version 4) UUID in that text. Safe from any thread.
std::string randomUuidText();

}  // namespace kiv
