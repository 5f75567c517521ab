// Turning the body of a failed backend request into a message a person can
// read. Backends wrap their message in many shapes ({"message": ...},
// {"error": {"messages": [...]}}, lists of those, or the whole JSON text
// quoted once more as a string literal); the first message found wins and
// anything that holds none is passed through unchanged.
//
//   KivStringUtils::extractErrorMessage(R"({"error":{"message":"expired"}})")  == "expired"
//   KivStringUtils::extractErrorMessage("Bad Gateway")                          == "Bad Gateway"
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/json.hpp"

namespace kiv::KivStringUtils {

// Longest body that is read as JSON for its message. Error bodies are short;
// a longer one is passed through as text, so that no answer can buy more
// than a bounded amount of work on the thread that reads it.
inline constexpr std::size_t kMaxParsedErrorBody = 64 * 1024;

// "" for absent or empty input; the message found in the text read as JSON
// (directly, or after unwrapping one level of string-literal quoting) without
// surrounding quotes, for texts up to kMaxParsedErrorBody bytes; otherwise the
// input as given.
std::string extractErrorMessage(const std::optional<std::string>& raw);

// The first message in `value`, searched in the backend's known shapes
// before nested values; absent when there is none. `value` is expected to
// come from a bounded parse (see body_json.hpp): the search recurses.
std::optional<std::string> findMessage(const Json& value);

// `text` without surrounding white space and new lines and, when it is at
// least two characters long, without one pair of enclosing double quotes.
std::string stripSurroundingQuotes(std::string_view text);

}  // namespace kiv::KivStringUtils
