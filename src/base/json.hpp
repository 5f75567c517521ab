// The one JSON vocabulary of the SDK (nlohmann::ordered_json, so objects keep
// insertion order and records encode in their fixed key order), with the two
// traps handled once:
//  - dump() throws on invalid UTF-8: dumpCompact() replaces bad bytes instead;
//  - nlohmann tells integers, floating numbers and booleans apart only if you
//    ask: the typed readers below never take "2", 2.5 or true for an integer,
//    nor 1 for a boolean, but do take 2.0 and 1e0 (exactly integral) for one.
//
// parse() takes time linear in the text and refuses values nested deeper than
// kMaxDepth; nlohmann's own Json::parse is quadratic in an object's member
// count for this ordered type, so text from outside goes through parse().
//
// Reading a record field:
//   auto name = json::optionalString(object, "name");   // absent or null -> nullopt
//   if (!name) return std::unexpected(name.error());     // present, wrong type
#pragma once

#include <cstdint>
#include <expected>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

using Json = nlohmann::ordered_json;

namespace json {

// Compact text (no spaces); invalid UTF-8 in strings becomes U+FFFD.
std::string dumpCompact(const Json& value);

// Containers nested deeper than this are refused by parse.
inline constexpr std::size_t kMaxDepth = 512;

// Absent for text that is not exactly one JSON value, or one nested deeper
// than kMaxDepth.
std::optional<Json> parse(std::string_view text);

bool isInteger(const Json& value);  // an integral number, not a float or bool
bool isNumber(const Json& value);   // integer or floating, not a bool

// Why a field could not be read: names the key and what was found.
struct FieldError {
  std::string key;
  std::string message;
};

template <typename T>
using Field = std::expected<std::optional<T>, FieldError>;

// Each reader: the key absent or null gives nullopt; present with another
// JSON type gives a FieldError. `object` must be an object.
Field<std::string> optionalString(const Json& object, std::string_view key);
// An integer, or a floating number that is exactly integral and in range.
Field<std::int64_t> optionalInt(const Json& object, std::string_view key);
Field<double> optionalDouble(const Json& object, std::string_view key);  // integers accepted
Field<bool> optionalBool(const Json& object, std::string_view key);
Field<Json> optionalObject(const Json& object, std::string_view key);
Field<Json> optionalArray(const Json& object, std::string_view key);

// The name of a value's JSON type, for messages: "string", "number", ...
std::string_view typeName(const Json& value);

}  // namespace json
}  // namespace kiv
