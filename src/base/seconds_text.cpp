#include "base/seconds_text.hpp"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace kiv {

std::string shortestDoubleText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";

  // Shortest round-trip digits, in scientific form: [-]d[.ddd]e(+|-)xx.
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific);
  (void)ec;  // 64 bytes always suffice for a double
  std::string_view text(buffer, static_cast<std::size_t>(end - buffer));

  std::string out;
  if (text.front() == '-') {
    out.push_back('-');
    text.remove_prefix(1);
  }
  const auto e = text.find('e');
  std::string digits;
  for (char c : text.substr(0, e)) {
    if (c != '.') digits.push_back(c);
  }
  const int exponent = std::atoi(std::string(text.substr(e + 1)).c_str());
  const int point = exponent + 1;  // digits before the decimal point
  const int count = static_cast<int>(digits.size());

  if (point > -4 && point <= 16) {
    if (point <= 0) {
      out += "0." + std::string(static_cast<std::size_t>(-point), '0') + digits;
    } else if (point >= count) {
      out += digits + std::string(static_cast<std::size_t>(point - count), '0') + ".0";
    } else {
      out += digits.substr(0, static_cast<std::size_t>(point)) + "." + digits.substr(static_cast<std::size_t>(point));
    }
    return out;
  }
  out += digits.substr(0, 1);
  if (count > 1) out += "." + digits.substr(1);
  const int magnitude = std::abs(exponent);
  out += exponent < 0 ? "e-" : "e+";
  if (magnitude < 10) out.push_back('0');
  out += std::to_string(magnitude);
  return out;
}

}  // namespace kiv
