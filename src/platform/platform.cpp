#include "kiv/platform/platform.hpp"

#include <utility>

#include "base/no_destructor.hpp"
#include "base/process_exit.hpp"
#include "base/process_state.hpp"
#include "kiv/platform/main_loop.hpp"
#include "platform/console/stdout_console.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "platform/linux_services.hpp"

namespace kiv {
namespace {

// After a test's reset the next platform() call builds the Linux bundle
// afresh, as a new process would.
ProcessSlot<std::shared_ptr<const Platform>>& slot() {
  static NoDestructor<ProcessSlot<std::shared_ptr<const Platform>>> instance;
  return *instance;
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

void installPlatform(Platform bundle) {
  process_exit::armExitHandler();
  slot().set(std::make_shared<const Platform>(std::move(bundle)));
}

void updatePlatform(const std::function<void(Platform&)>& change) {
  // The replaced bundle is released after the lock is let go.
  auto replaced = slot().update([&](std::shared_ptr<const Platform>& installed) {
    Platform copy = installed ? *installed : makeLinuxPlatform();
    change(copy);
    return std::exchange(installed, std::make_shared<const Platform>(std::move(copy)));
  });
  process_exit::armExitHandler();
}

std::shared_ptr<const Platform> platform() {
  auto installed = slot().update([](std::shared_ptr<const Platform>& current) {
    if (!current) current = std::make_shared<const Platform>(makeLinuxPlatform());
    return current;
  });
  // Armed once the bundle exists: the libraries it set up (libcurl and the
  // TLS library under it) registered their own teardown before the hooks.
  process_exit::armExitHandler();
  return installed;
}

}  // namespace kiv
