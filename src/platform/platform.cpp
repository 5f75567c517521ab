#include "kiv/platform/platform.hpp"

#include <mutex>

#include "kiv/platform/main_loop.hpp"
#include "platform/console/stdout_console.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "platform/linux_services.hpp"
#include "platform/process_state.hpp"

namespace kiv {
namespace {

struct Slot {
  std::mutex mutex;
  std::shared_ptr<const Platform> installed;
};

Slot& slot() {
  static Slot instance;
  return instance;
}

// After a test's reset the next platform() call builds the Linux bundle
// afresh, as a new process would.
const process_state::ResetRegistration kReset{[] {
  std::lock_guard lock(slot().mutex);
  slot().installed.reset();
}};

}  // namespace

Platform makeLinuxPlatform() {
  Platform bundle;
  bundle.mainQueue = std::make_shared<MainLoop>();
  bundle.clock = std::make_shared<SystemClock>();
  bundle.taskPool = std::make_shared<ThreadTaskPool>();
  bundle.console = std::make_shared<StdoutConsole>();
  addLinuxServices(bundle);
  return bundle;
}

void installPlatform(Platform bundle) {
  auto installed = std::make_shared<const Platform>(std::move(bundle));
  std::lock_guard lock(slot().mutex);
  slot().installed = std::move(installed);
}

std::shared_ptr<const Platform> platform() {
  std::lock_guard lock(slot().mutex);
  if (!slot().installed) slot().installed = std::make_shared<const Platform>(makeLinuxPlatform());
  return slot().installed;
}

}  // namespace kiv
