#include "base/current_environment.hpp"

#include <atomic>

#include "base/process_state.hpp"

namespace kiv {
namespace {

std::atomic<KivEnvironment>& slot() {
  static std::atomic<KivEnvironment> environment{KivEnvironment::prod};
  return environment;
}

const process_state::ResetRegistration kReset{[] { slot().store(KivEnvironment::prod); }};

}  // namespace

KivEnvironment currentEnvironment() { return slot().load(); }

void setCurrentEnvironment(KivEnvironment environment) { slot().store(environment); }

}  // namespace kiv
