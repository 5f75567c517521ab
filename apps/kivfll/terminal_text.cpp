#include "terminal_text.hpp"

namespace kiv::cli {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// \x1b for a byte, \u009b for a C1 control.
void appendEscape(std::string& out, unsigned value, bool codePoint) {
  out += codePoint ? "\\u00" : "\\x";
  out += kHexDigits[(value >> 4) & 0xF];
  out += kHexDigits[value & 0xF];
}

// The length of the well-formed UTF-8 sequence at the start of `text` and its
// code point, or 0 when it is not one.
std::size_t sequenceAt(std::string_view text, char32_t& codePoint) {
  const auto lead = static_cast<unsigned char>(text[0]);
  std::size_t length = 0;
  char32_t minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, minimum = 0x80, codePoint = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, minimum = 0x800, codePoint = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, minimum = 0x10000, codePoint = lead & 0x07;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (next & 0x3F);
  }
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint < minimum || codePoint > 0x10FFFF || surrogate ? 0 : length;
}

}  // namespace

std::string terminalSafe(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text[0]);
    if (byte < 0x80) {
      if (byte < 0x20 || byte == 0x7F) {
        appendEscape(out, byte, false);
      } else {
        out += static_cast<char>(byte);
      }
      text.remove_prefix(1);
      continue;
    }
    char32_t codePoint = 0;
    const std::size_t length = sequenceAt(text, codePoint);
    if (length == 0) {
      appendEscape(out, byte, false);
      text.remove_prefix(1);
    } else {
      if (codePoint <= 0x9F) {
        appendEscape(out, static_cast<unsigned>(codePoint), true);
      } else {
        out.append(text.substr(0, length));
      }
      text.remove_prefix(length);
    }
  }
  return out;
}

}  // namespace kiv::cli
