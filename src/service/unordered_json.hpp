// JSON texts from outside the SDK whose key order means nothing (token
// payloads, telemetry bodies), parsed into nlohmann's map-keyed json.
//
// Where key order does not matter and the value is written back out sorted
// (the telemetry sanitiser), the map-keyed type is the natural one; readers
// that want the SDK's Json use json::parse, which is linear as well.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/json/json.hpp"

namespace kiv {

using UnorderedJson = nlohmann::json;

namespace unordered_json {

// Absent for text that is not exactly one JSON value, or one nested deeper
// than json::kMaxDepth.
std::optional<UnorderedJson> parse(std::string_view text);

// Compact text (no spaces), keys in sorted order; invalid UTF-8 in strings
// becomes U+FFFD.
std::string dumpCompact(const UnorderedJson& value);

}  // namespace unordered_json
}  // namespace kiv
