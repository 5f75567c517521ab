// The one home of the SDK's UTF-8 handling: the Unicode questions the
// telemetry, token, store and crash code ask of a text, answered by utf8proc,
// and by simdjson's vectorised validator for whether a text is well-formed
// (asked of every telemetry text, large ones too). Texts are UTF-8 byte
// strings.
//
// Two repair rules live here, and they differ on purpose:
// - repairedUtf8 (and scalarAt, and everything that counts or trims): one
//   U+FFFD per byte that belongs to no well-formed sequence. Telemetry texts
//   are bounded and counted this way, so a sanitised text and its count agree.
// - decodeUtf8Lossy: one U+FFFD per maximal subpart of an ill-formed sequence
//   (a truncated three-byte sequence gives one), as a phone decodes the bytes
//   of a stored item into text. Only the secure-store text reads use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kiv::unicode {

// One scalar read from a text: `valid` is false for a byte that starts no
// well-formed sequence; it then reads as U+FFFD with a length of 1.
struct Scalar {
  char32_t value;
  std::size_t length;
  bool valid;
};

// Decodes the scalar at `position` (< text.size()). Async-signal-safe: the
// crash writer uses it.
Scalar scalarAt(std::string_view text, std::size_t position) noexcept;

// Whether `bytes` is well-formed UTF-8 (no overlong forms, surrogates or
// scalars above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// `bytes` with every byte outside a well-formed sequence replaced by U+FFFD,
// or nullopt when `bytes` is already well-formed (the common case costs no
// copy).
std::optional<std::string> repairedUtf8(std::string_view bytes);

// The byte length of the well-formed UTF-8 sequence starting at `position`,
// or 0 when none starts there.
std::size_t sequenceLengthAt(std::string_view bytes, std::size_t position) noexcept;

// `bytes` as text, each maximal subpart of an ill-formed sequence replaced by
// one U+FFFD (see the header comment). Never fails.
std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes);

// Unicode White_Space: the separators (Zs, Zl, Zp), U+0009 to U+000D and
// U+0085, which is what "white space and new lines" means on the phone.
bool isWhiteSpaceOrNewline(char32_t scalar);

// `text` without leading and trailing white space and new lines.
std::string_view trimWhiteSpaceAndNewlines(std::string_view text);

// The number of user-perceived characters (extended grapheme clusters) of
// `text`, counting stops at `limit`: the result is min(count, limit). Work is
// bounded by the scalars read before the limit is reached.
std::size_t characterCountUpTo(std::string_view text, std::size_t limit);

}  // namespace kiv::unicode
