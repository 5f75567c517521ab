#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kiv {

// `bytes` as UTF-8 text, each ill-formed sequence replaced by U+FFFD: one
// replacement per maximal subpart (a truncated three-byte sequence gives one,
// a stray byte gives one), as Unicode recommends and as a phone decodes it.
// Never fails.
std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes);

}  // namespace kiv
