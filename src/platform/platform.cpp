#include "kiv/platform/platform.hpp"

#include <utility>

#include "kiv/platform/main_loop.hpp"
#include "platform/console/stdout_console.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "platform/linux_services.hpp"
#include "base/process_state.hpp"

namespace kiv {
namespace {

// After a test's reset the next platform() call builds the Linux bundle
// afresh, as a new process would.
ProcessSlot<std::shared_ptr<const Platform>>& slot() {
  static ProcessSlot<std::shared_ptr<const Platform>> instance;
  return instance;
}

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

void installPlatform(Platform bundle) { slot().set(std::make_shared<const Platform>(std::move(bundle))); }

void updatePlatform(const std::function<void(Platform&)>& change) {
  // The replaced bundle is released after the lock is let go.
  auto replaced = slot().update([&](std::shared_ptr<const Platform>& installed) {
    Platform copy = installed ? *installed : makeLinuxPlatform();
    change(copy);
    return std::exchange(installed, std::make_shared<const Platform>(std::move(copy)));
  });
}

std::shared_ptr<const Platform> platform() {
  return slot().update([](std::shared_ptr<const Platform>& installed) {
    if (!installed) installed = std::make_shared<const Platform>(makeLinuxPlatform());
    return installed;
  });
}

}  // namespace kiv
