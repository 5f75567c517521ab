// Process-wide instances (the run guard, the analytics client slot, the crash
// handler slot, the current environment...) live for the whole process. Each
// registers here how to return to its initial state, so that a test fixture
// can reset them all and tests never leak state into one another.
#pragma once

#include <functional>
#include <mutex>
#include <utility>

namespace kiv::process_state {

void registerReset(std::function<void()> reset);

// Calls every registered reset, in registration order. Tests only.
void resetAll();

// Registers at static-initialisation time:
//   static const kiv::process_state::ResetRegistration kReset{[] { ... }};
struct ResetRegistration {
  explicit ResetRegistration(std::function<void()> reset) { registerReset(std::move(reset)); }
};

}  // namespace kiv::process_state

namespace kiv {

// One process-wide value behind a mutex that goes back to T{} when a test
// resets process state. Give it static storage that is never destroyed (a
// function-local NoDestructor), as its reset is registered with a pointer to
// it and threads may still read it while the process exits:
//
//   ProcessSlot<std::string>& tokenKey() {
//     static NoDestructor<ProcessSlot<std::string>> slot;
//     return *slot;
//   }
//
// A value replaced by set, exchange or the reset is released after the lock
// is let go, so its destructor may itself reach the slot or take other locks.
template <typename T>
class ProcessSlot {
 public:
  ProcessSlot() = default;
  ProcessSlot(const ProcessSlot&) = delete;
  ProcessSlot& operator=(const ProcessSlot&) = delete;

  T get() const {
    std::lock_guard lock(mutex_);
    return value_;
  }

  void set(T value) { exchange(std::move(value)); }

  // Stores `value` and hands back the one it replaces.
  T exchange(T value) {
    std::lock_guard lock(mutex_);
    return std::exchange(value_, std::move(value));
  }

  // Runs `change(value)` under the lock, for a read-modify-write that get and
  // set would split (a value created on first use, one entry of a table).
  template <typename F>
  decltype(auto) update(F&& change) {
    std::lock_guard lock(mutex_);
    return std::forward<F>(change)(value_);
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
  // Registered on first use: until then the slot holds T{} anyway.
  process_state::ResetRegistration reset_{[this] { set(T{}); }};
};

}  // namespace kiv
