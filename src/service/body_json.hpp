// Parsing text that came from the network. Backend answers are untrusted: a
// body nested thousands of levels deep would parse, but every recursive walk
// over it afterwards (copying, printing, searching) could exhaust the stack.
// Such a body is treated as text that is not JSON.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/json.hpp"

namespace kiv {

inline constexpr std::size_t kMaxBodyNesting = 512;

// Absent for text that is not exactly one JSON value, or that nests arrays
// and objects deeper than kMaxBodyNesting.
std::optional<Json> parseBody(std::string_view text);

// Only a JSON array or object; absent for anything else (bare strings,
// numbers, literals), as a body parser that wants a container reads it.
std::optional<Json> parseContainerBody(std::string_view text);

}  // namespace kiv
