#include "base/process_state.hpp"

#include <mutex>
#include <vector>

namespace kiv::process_state {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<std::function<void()>> resets;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

void registerReset(std::function<void()> reset) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  r.resets.push_back(std::move(reset));
}

void resetAll() {
  std::vector<std::function<void()>> resets;
  {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    resets = r.resets;
  }
  for (auto& reset : resets) reset();
}

}  // namespace kiv::process_state
