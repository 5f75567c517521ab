// JSON texts from outside the SDK whose key order means nothing (token
// payloads, telemetry bodies), parsed into nlohmann's map-keyed json.
//
// The SDK's Json keeps insertion order by finding keys with a linear search,
// so parsing an object of n members into it costs O(n^2): about three
// seconds for a 1 MB object of short members. The map-keyed parse is
// O(n log n), and converting its result to Json afterwards is linear
// (`Json ordered(*parsed);`), when a reader needs the SDK's type.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/json/json.hpp"

namespace kiv {

using UnorderedJson = nlohmann::json;

namespace unordered_json {

// Absent for text that is not exactly one JSON value.
std::optional<UnorderedJson> parse(std::string_view text);

// Compact text (no spaces), keys in sorted order; invalid UTF-8 in strings
// becomes U+FFFD.
std::string dumpCompact(const UnorderedJson& value);

}  // namespace unordered_json
}  // namespace kiv
