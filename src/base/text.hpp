// Small ASCII and byte-text helpers shared by every room. Unicode-aware
// questions (white space, characters, repair) are in unicode_text.hpp.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv {

// `text` without leading and trailing bytes from `blanks`.
std::string_view trimmed(std::string_view text, std::string_view blanks = " \t\r\n");

// `text` with A-Z lowered; every other byte unchanged. Enough wherever the
// texts compared against are ASCII words: no other letter lowers into one.
std::string asciiLowercased(std::string_view text);

// Standard base64 with padding (RFC 4648 section 4), through libsodium.
std::string base64Encoded(std::string_view bytes);
// The bytes of standard, padded base64 text; absent when it is not that.
std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace kiv
