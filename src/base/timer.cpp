#include "base/timer.hpp"

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "base/seconds_text.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {
const process_state::ResetRegistration kReset{[] { KivSDKTimer::shared().resetForTesting(); }};
}  // namespace

KivSDKTimer& KivSDKTimer::shared() {
  static NoDestructor<KivSDKTimer> instance;
  return *instance;
}

void KivSDKTimer::start(const std::string& name) {
  const auto now = platform()->clock->now();
  std::lock_guard lock(mutex_);
  if (startTime_) (*startTime_)[name] = now;
}

std::optional<std::string> KivSDKTimer::elapsed(const std::string& name) {
  TimePoint started;
  {
    std::lock_guard lock(mutex_);
    if (!startTime_ || startTime_->empty()) return std::nullopt;
    auto it = startTime_->find(name);
    if (it == startTime_->end()) return std::nullopt;
    started = it->second;
    startTime_->erase(it);
  }
  return shortestDoubleText(secondsBetween(started, platform()->clock->now()));
}

void KivSDKTimer::resetForTesting() {
  std::lock_guard lock(mutex_);
  startTime_ = std::map<std::string, TimePoint>{};
}

}  // namespace kiv
