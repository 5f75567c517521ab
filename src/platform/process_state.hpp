// Process-wide instances (the run guard, the analytics client slot, the crash
// handler slot, the current environment...) live for the whole process. Each
// registers here how to return to its initial state, so that a test fixture
// can reset them all and tests never leak state into one another.
#pragma once

#include <functional>

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
