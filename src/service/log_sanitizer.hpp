// Bounds what leaves the device inside telemetry: every value bound for an
// analytics event passes through here. Image payloads are removed, and every
// text ends up at most maxLoggedBytes bytes of UTF-8. An oversized JSON text
// is replaced whole by a marker stating its size (a cut JSON text would be
// useless to whoever reads it); any other oversized text is cut at a scalar
// boundary and ends with a suffix stating its size.
//
//   Json params = Json::object();
//   params["imgData"] = base64Jpeg;                 // removed
//   params["responseData"] = hugeBody;              // bounded
//   Json safe = sanitizeDictionary(std::move(params));
//
// Nothing here fails or throws on hostile input; text that is not valid UTF-8
// is first repaired (each stray byte becomes U+FFFD), so the results are
// always valid UTF-8 within the bound. Stateless; safe from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "base/json.hpp"

namespace kiv {

// The largest UTF-8 byte length of any text value after sanitising (65000,
// not 65536).
inline constexpr std::size_t maxLoggedBytes = 65000;

// Entries under these keys are always removed (exact, case-sensitive match).
inline constexpr std::array<std::string_view, 4> droppedKeys{"imgData", "imgPreview", "img_data", "img_preview"};

// Entries under these keys are removed when their value is a text of
// largeValueCharacterCount user-perceived characters or more.
inline constexpr std::array<std::string_view, 2> largeValueKeys{"data", "image"};
inline constexpr std::size_t largeValueCharacterCount = 1024;

// What replaces an oversized JSON text: {"truncated":true,"originalByteLength":N}.
inline constexpr std::string_view truncatedJsonMarkerPrefix = R"({"truncated":true,"originalByteLength":)";
inline constexpr std::string_view truncatedJsonMarkerEnd = "}";
std::string truncatedJsonMarker(std::size_t originalByteLength);

// What ends a cut plain text: "…[truncated,originalByteLength=N]" (the first
// character is U+2026 HORIZONTAL ELLIPSIS, three bytes).
inline constexpr std::string_view truncatedPlainSuffixPrefix = "\xE2\x80\xA6[truncated,originalByteLength=";
inline constexpr std::string_view truncatedPlainSuffixEnd = "]";
std::string truncatedPlainSuffix(std::size_t originalByteLength);

// Any JSON value, sanitised, of the same shape: a text goes through
// truncateBodyText, an object through sanitizeDictionary, an array element
// by element; numbers, booleans and null are kept.
Json sanitizeForLog(Json value);

// Each entry of an object: removed under droppedKeys, removed under
// largeValueKeys when it holds a long text, otherwise sanitizeForLog'd.
// Surviving entries keep their order. A value that is not an object is
// treated as by sanitizeForLog.
Json sanitizeDictionary(Json dictionary);

// The same rules for a dictionary whose values are all texts.
std::map<std::string, std::string> sanitizeDictionary(std::map<std::string, std::string> dictionary);

// One text, bounded. A text that is a JSON object or array (once trimmed of
// Unicode white space) comes back as compact JSON with the rules above
// applied inside it, or as the JSON marker when that compact JSON is over
// the bound; any other text comes back unchanged, or cut with the plain
// suffix when it is over the bound.
std::string truncateBodyText(std::string_view text);

// The longest prefix of `text` made of whole UTF-8 sequences whose length is
// at most `budget` bytes; a view into `text`. A byte that starts no valid
// sequence counts as a unit of its own.
std::string_view utf8Prefix(std::string_view text, std::size_t budget);

}  // namespace kiv
