#include "kiv/platform/crash.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {

void prepareThreadForCrashCapture() {
  if (auto crash = platform()->crash) crash->installAlternateStack();
}

}  // namespace kiv
