// The few Unicode questions the telemetry and token code asks of a text,
// answered by utf8proc, and by simdjson's vectorised validator for whether a
// text is well-formed (asked of every telemetry text, large ones too). Texts are UTF-8 byte strings; a byte that does
// not belong to a well-formed UTF-8 sequence counts as one U+FFFD, the scalar it becomes once the text is repaired.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::unicode {

// Whether `bytes` is well-formed UTF-8 (no overlong forms, surrogates or
// scalars above U+10FFFF).
bool isValidUtf8(std::string_view bytes);

// `bytes` with every byte outside a well-formed sequence replaced by U+FFFD,
// or nullopt when `bytes` is already well-formed (the common case costs no
// copy).
std::optional<std::string> repairedUtf8(std::string_view bytes);

// The byte length of the well-formed UTF-8 sequence starting at `position`,
// or 0 when none starts there.
std::size_t sequenceLengthAt(std::string_view bytes, std::size_t position);

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
