// Main-thread affinity: the facade, the view model, the presenter and every
// view live on the main queue's thread.
#pragma once

// Exported from the shared library, though not installed: the toolkits built
// beside it (kivfll-gtk) build their views and controllers on these.
#pragma GCC visibility push(default)

#include "kiv/platform/main_queue.hpp"

namespace kiv {

// Runs `task` inline when called on the main thread, otherwise posts it to
// the main queue. For operations that may be called from any thread.
void runOnMain(Task task);

namespace detail {
[[noreturn]] void mainThreadViolation(const char* file, int line);
bool onMainThread();
}  // namespace detail

}  // namespace kiv

// Debug builds stop at once when a main-thread-only operation is called from
// another thread; release builds trust the caller.
#ifdef NDEBUG
#define KIV_ASSERT_MAIN_THREAD() ((void)0)
#else
#define KIV_ASSERT_MAIN_THREAD() \
  (::kiv::detail::onMainThread() ? (void)0 : ::kiv::detail::mainThreadViolation(__FILE__, __LINE__))
#endif

#pragma GCC visibility pop
