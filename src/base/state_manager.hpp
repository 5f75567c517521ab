// The process-wide run guard: at most one liveness run at a time, whatever
// number of facades the host creates.
#pragma once

#include <shared_mutex>

#include "base/no_destructor.hpp"

namespace kiv {

class KivSDKStateManager {
 public:
  enum class State { idle, running };

  static KivSDKStateManager& shared();

  // All three block briefly and are safe from any thread. Readers share the
  // lock; beginRun and endRun hold it exclusively, so exactly one of many
  // concurrent beginRun() calls wins.
  bool isRunning() const;
  // idle -> running, true; false and no change when a run is in progress.
  bool beginRun();
  // Back to idle (harmless when already idle); always true.
  bool endRun();

 private:
  friend class NoDestructor<KivSDKStateManager>;
  KivSDKStateManager() = default;
  mutable std::shared_mutex stateLock_;
  State state_ = State::idle;
};

}  // namespace kiv
