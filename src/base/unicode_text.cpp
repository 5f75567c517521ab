#include "base/unicode_text.hpp"

#include <simdjson.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace kiv::unicode {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";

bool isContinuationByte(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

bool decodesWhole(const std::uint8_t* data, std::size_t size) {
  utf8proc_int32_t scalar = 0;
  return utf8proc_iterate(data, static_cast<utf8proc_ssize_t>(size), &scalar) == static_cast<utf8proc_ssize_t>(size);
}

// Whether `prefix` can begin a well-formed sequence: some completion of it
// with continuation bytes decodes. The lowest and highest continuation bytes
// suffice as fillers, since every lead byte's allowed second bytes form one
// range that touches one of the two ends (E0: A0-BF, ED: 80-9F, F0: 90-BF,
// F4: 80-8F). utf8proc judges; this only asks.
bool beginsSequence(std::span<const std::uint8_t> prefix) {
  std::array<std::uint8_t, 4> probe{};
  std::copy(prefix.begin(), prefix.end(), probe.begin());
  for (std::uint8_t filler : {std::uint8_t{0x80}, std::uint8_t{0xBF}}) {
    for (std::size_t total = prefix.size() + 1; total <= probe.size(); ++total) {
      std::fill(probe.begin() + static_cast<std::ptrdiff_t>(prefix.size()), probe.end(), filler);
      if (decodesWhole(probe.data(), total)) return true;
    }
  }
  return false;
}

// Length of the maximal subpart at the start of `rest`, which does not
// begin with a well-formed sequence: its longest prefix that could still
// begin one, and at least one byte.
std::size_t maximalSubpart(std::span<const std::uint8_t> rest) {
  for (std::size_t length = std::min<std::size_t>(3, rest.size()); length > 1; --length) {
    if (beginsSequence(rest.first(length))) return length;
  }
  return 1;
}

}  // namespace

// ASCII, most of every text here, never leaves the first branch.
Scalar scalarAt(std::string_view text, std::size_t position) noexcept {
  const auto first = static_cast<unsigned char>(text[position]);
  if (first < 0x80) return {first, 1, true};
  utf8proc_int32_t value = 0;
  const auto* start = reinterpret_cast<const utf8proc_uint8_t*>(text.data() + position);
  const auto length = utf8proc_iterate(start, static_cast<utf8proc_ssize_t>(text.size() - position), &value);
  if (length <= 0) return {kReplacementCharacter, 1, false};
  return {static_cast<char32_t>(value), static_cast<std::size_t>(length), true};
}

// Vectorised: every telemetry text and every large body is checked once, so
// this runs near memory speed instead of one scalar at a time.
bool isValidUtf8(std::string_view bytes) { return simdjson::validate_utf8(bytes.data(), bytes.size()); }

std::optional<std::string> repairedUtf8(std::string_view bytes) {
  if (isValidUtf8(bytes)) return std::nullopt;
  std::size_t i = 0;
  Scalar scalar{};
  while (i < bytes.size() && (scalar = scalarAt(bytes, i)).valid) i += scalar.length;
  if (i == bytes.size()) return std::nullopt;

  std::string repaired;
  repaired.reserve(bytes.size() + 2 * kReplacementUtf8.size());
  repaired.append(bytes.substr(0, i));
  while (i < bytes.size()) {
    scalar = scalarAt(bytes, i);
    if (scalar.valid) {
      repaired.append(bytes.substr(i, scalar.length));
    } else {
      repaired.append(kReplacementUtf8);
    }
    i += scalar.length;
  }
  return repaired;
}

std::size_t sequenceLengthAt(std::string_view bytes, std::size_t position) noexcept {
  if (position >= bytes.size()) return 0;
  const Scalar scalar = scalarAt(bytes, position);
  return scalar.valid ? scalar.length : 0;
}

bool isWhiteSpaceOrNewline(char32_t scalar) {
  // The controls that Unicode counts as white space; every other white space
  // scalar is a separator by category.
  constexpr std::array<char32_t, 6> kWhiteSpaceControls{0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x85};
  for (char32_t control : kWhiteSpaceControls) {
    if (scalar == control) return true;
  }
  if (scalar < 0x80) return scalar == 0x20;
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(scalar))) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return true;
    default:
      return false;
  }
}

std::string_view trimWhiteSpaceAndNewlines(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const Scalar scalar = scalarAt(text, begin);
    if (!scalar.valid || !isWhiteSpaceOrNewline(scalar.value)) break;
    begin += scalar.length;
  }
  std::size_t end = text.size();
  while (end > begin) {
    // Step back to the start of the last scalar (at most three continuation
    // bytes); a sequence that does not decode to exactly that end is an
    // invalid byte, which is not white space.
    std::size_t start = end - 1;
    while (start > begin && end - start < 4 && isContinuationByte(text[start])) --start;
    const Scalar scalar = scalarAt(text, start);
    if (!scalar.valid || start + scalar.length != end || !isWhiteSpaceOrNewline(scalar.value)) break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

std::size_t characterCountUpTo(std::string_view text, std::size_t limit) {
  if (text.empty() || limit == 0) return 0;
  utf8proc_int32_t state = 0;
  Scalar previous = scalarAt(text, 0);
  std::size_t count = 1;
  for (std::size_t i = previous.length; i < text.size() && count < limit;) {
    const Scalar current = scalarAt(text, i);
    if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous.value),
                                         static_cast<utf8proc_int32_t>(current.value), &state)) {
      ++count;
    }
    previous = current;
    i += current.length;
  }
  return count;
}

std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size());
  std::size_t at = 0;
  while (at < bytes.size()) {
    const auto rest = bytes.subspan(at);
    utf8proc_int32_t scalar = 0;
    const auto length = utf8proc_iterate(rest.data(), static_cast<utf8proc_ssize_t>(rest.size()), &scalar);
    if (length > 0) {
      text.append(reinterpret_cast<const char*>(rest.data()), static_cast<std::size_t>(length));
      at += static_cast<std::size_t>(length);
    } else {
      text += kReplacementUtf8;
      at += maximalSubpart(rest);
    }
  }
  return text;
}

}  // namespace kiv::unicode
