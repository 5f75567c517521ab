#include "base/state_manager.hpp"

#include <mutex>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"

namespace kiv {
namespace {
const process_state::ResetRegistration kReset{[] { KivSDKStateManager::shared().endRun(); }};
}  // namespace

KivSDKStateManager& KivSDKStateManager::shared() {
  static NoDestructor<KivSDKStateManager> instance;
  return *instance;
}

bool KivSDKStateManager::isRunning() const {
  std::shared_lock lock(stateLock_);
  return state_ == State::running;
}

bool KivSDKStateManager::beginRun() {
  std::unique_lock lock(stateLock_);
  if (state_ != State::idle) return false;
  state_ = State::running;
  return true;
}

bool KivSDKStateManager::endRun() {
  std::unique_lock lock(stateLock_);
  state_ = State::idle;
  return true;
}

}  // namespace kiv
