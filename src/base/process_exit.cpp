#include "base/process_exit.hpp"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "base/no_destructor.hpp"
#include "base/unicode_text.hpp"

namespace kiv::process_exit {
namespace {

struct Hooks {
  std::mutex mutex;
  std::vector<std::function<void()>> hooks;
  std::atomic<bool> armed{false};
  bool ran = false;
};

Hooks& hooks() {
  static NoDestructor<Hooks> instance;
  return *instance;
}

void runHooks() {
  std::vector<std::function<void()>> list;
  {
    std::lock_guard lock(hooks().mutex);
    if (hooks().ran) return;
    hooks().ran = true;
    list = hooks().hooks;
  }
  for (auto hook = list.rbegin(); hook != list.rend(); ++hook) {
    try {
      (*hook)();
    } catch (...) {
      // The process is ending either way.
    }
  }
}

}  // namespace

void addHook(std::function<void()> hook) {
  std::lock_guard lock(hooks().mutex);
  hooks().hooks.push_back(std::move(hook));
}

void armExitHandler() {
  if (hooks().armed.load(std::memory_order_acquire)) return;  // every platform() call comes here
  {
    std::lock_guard lock(hooks().mutex);
    if (hooks().armed.exchange(true)) return;
  }
  // The vectorised UTF-8 check picks its implementation on first use and
  // keeps it in statics of its library; made now, they outlive the hooks.
  (void)unicode::isValidUtf8("kiv");
  std::atexit(runHooks);
}

}  // namespace kiv::process_exit
