#include "platform/dispatch/main_affinity.hpp"

#include <cstdio>
#include <cstdlib>

#include "kiv/platform/platform.hpp"

namespace kiv {

void runOnMain(Task task) {
  const auto& queue = platform()->mainQueue;
  if (queue->isCurrent()) {
    task();
  } else {
    queue->post(std::move(task));
  }
}

namespace detail {

bool onMainThread() { return platform()->mainQueue->isCurrent(); }

void mainThreadViolation(const char* file, int line) {
  std::fprintf(stderr, "%s:%d: main-thread-only operation called from another thread\n", file, line);
  std::abort();
}

}  // namespace detail
}  // namespace kiv
