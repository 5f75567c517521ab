// Counts the SDK's background work that is still under way: HTTP transfers
// and task-pool tasks. A host about to exit (the command-line host, the C
// interface) waits until both are idle, so the detached posts of an attempt
// (the transaction, analytics) reach the backend or its offline queue first.
//
//   auto counter = std::make_shared<TrafficCounter>();
//   bundle.http = counter->wrap(bundle.http);
//   bundle.taskPool = counter->wrap(bundle.taskPool);
//   ...
//   if (counter->idle()) exit();
//
// A transfer's completion posts its follow-up work before the transfer counts
// as done, and a task starts its transfer before the task counts as done, so
// a chain of them never reads as idle half-way.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <atomic>
#include <memory>

#include "kiv/platform/http.hpp"
#include "kiv/platform/task_pool.hpp"

namespace kiv {

class TrafficCounter : public std::enable_shared_from_this<TrafficCounter> {
 public:
  std::shared_ptr<HttpSessionFactory> wrap(std::shared_ptr<HttpSessionFactory> inner);
  std::shared_ptr<TaskPool> wrap(std::shared_ptr<TaskPool> inner);

  // Nothing counted is under way. Safe from any thread.
  bool idle() const { return underWay_.load() == 0; }

  // One unit of work, counted while the returned object lives.
  std::shared_ptr<void> begin();

 private:
  std::atomic<int> underWay_{0};
};

}  // namespace kiv

#pragma GCC visibility pop
