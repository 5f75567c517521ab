// The sessions the sandbox hands out: every field a SessionResponse has,
// fresh identifiers, a vendor token, and a signedResponse that binds the
// session, the attempt, the person and the time under the sandbox's key.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "sandbox/request_log.hpp"
#include "sandbox/signing.hpp"

namespace kiv::sandbox {

// How minted sessions look; the defaults suit the SDK's happy path.
struct SessionTemplate {
  std::string filter = "natural";  // supplier.settings.filter
  std::int64_t remainingAttempts = 3;
  std::chrono::seconds lifetime{600};  // expiredAt - createdAt
};

struct SessionRequest {
  std::string personId;
  std::string clientId;
  // The SDK's own description from the request body, echoed back.
  std::optional<std::string> sdkVersion{};
  std::optional<std::string> sdkPlatform{};
};

struct MintedSession {
  std::string json;  // the answer body
  SessionRecord record;
  std::string signedResponse;
};

MintedSession mintSession(const SessionRequest& request, const SessionTemplate& shape, const SigningKey& key,
                          std::chrono::system_clock::time_point now);

// A random version 4 UUID in lower-case text.
std::string randomUuid();
// `time` as UTC ISO 8601 with milliseconds: 2026-01-31T12:34:56.789Z.
std::string isoTime(std::chrono::system_clock::time_point time);

}  // namespace kiv::sandbox
