// Wall-clock time. Ages (the 90-second freshness window), named durations and
// timestamps are all read from the installed clock, so a test can move time.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <chrono>

namespace kiv {

using TimePoint = std::chrono::system_clock::time_point;

// Seconds between two points, as a double (negative if `to` is earlier).
inline double secondsBetween(TimePoint from, TimePoint to) { return std::chrono::duration<double>(to - from).count(); }

class Clock {
 public:
  virtual ~Clock() = default;
  // Safe from any thread.
  virtual TimePoint now() const = 0;
};

// The system's real-time clock.
class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace kiv

#pragma GCC visibility pop
