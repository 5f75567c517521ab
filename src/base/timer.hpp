// Named durations, measured on the installed clock. The backend service
// starts one when it sends a request and reads it when the answer arrives,
// possibly on another thread.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "base/no_destructor.hpp"
#include "kiv/platform/clock.hpp"

namespace kiv {

class KivSDKTimer {
 public:
  static KivSDKTimer& shared();

  // Records now under `name`, replacing an earlier start. Safe from any thread.
  void start(const std::string& name);

  // Removes the entry and gives the seconds since its start as text (see
  // shortestDoubleText: "1.0", "0.25"); none when `name` was not started.
  std::optional<std::string> elapsed(const std::string& name);

  void resetForTesting();

 private:
  friend class NoDestructor<KivSDKTimer>;
  KivSDKTimer() = default;
  std::mutex mutex_;
  std::optional<std::map<std::string, TimePoint>> startTime_ = std::map<std::string, TimePoint>{};
};

}  // namespace kiv
