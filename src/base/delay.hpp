// A delay given in seconds, as clocks and timers take it.
#pragma once

#include <chrono>
#include <cmath>

namespace kiv {

// About a century: far beyond any delay a caller means, and still a span that
// 64-bit nanosecond clocks can add to any time point of theirs. Converted
// unchecked, a larger delay (`wait 1e10` in a capture script) overflows and
// comes due at once.
inline constexpr double kLongestDelaySeconds = 100.0 * 365 * 24 * 60 * 60;

// `seconds` as a duration: a negative or NaN delay is none, one beyond
// kLongestDelaySeconds is cut to it.
inline std::chrono::nanoseconds delayFromSeconds(double seconds) {
  if (std::isnan(seconds) || seconds <= 0) return std::chrono::nanoseconds::zero();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::duration<double>(std::fmin(seconds, kLongestDelaySeconds)));
}

}  // namespace kiv
