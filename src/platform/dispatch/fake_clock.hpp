// A clock that moves only when told. Shared by the manual main loop and the
// code under test.
#pragma once

#include <atomic>
#include <chrono>

#include "kiv/platform/clock.hpp"

namespace kiv {

class FakeClock final : public Clock {
 public:
  // 2026-01-01T00:00:00Z: a fixed, recognisable start.
  static constexpr std::chrono::seconds kStart{1767225600};

  TimePoint now() const override { return TimePoint(std::chrono::nanoseconds(nanos_.load())); }

  void set(TimePoint t) {
    nanos_.store(std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count());
  }
  void advance(double seconds) {
    nanos_.fetch_add(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds)).count());
  }

 private:
  std::atomic<std::chrono::nanoseconds::rep> nanos_{std::chrono::nanoseconds(kStart).count()};
};

}  // namespace kiv
