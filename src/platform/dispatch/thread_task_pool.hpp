// The real task pool: a fixed set of threads (Asio thread_pool), serial
// queues as strands on it.
#pragma once

#include <memory>

#include "kiv/platform/task_pool.hpp"

namespace kiv {

class ThreadTaskPool final : public TaskPool {
 public:
  explicit ThreadTaskPool(unsigned threads = 4);
  ~ThreadTaskPool() override;
  ThreadTaskPool(const ThreadTaskPool&) = delete;
  ThreadTaskPool& operator=(const ThreadTaskPool&) = delete;

  void post(Task task) override;
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) override;
  void waitIdle() override;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace kiv
