#include "platform/dispatch/thread_task_pool.hpp"

#include <algorithm>
#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "base/no_destructor.hpp"
#include "base/process_exit.hpp"

namespace kiv {

struct ThreadTaskPool::Impl {
  explicit Impl(unsigned threads) : pool(threads) {}

  asio::thread_pool pool;
  std::mutex mutex;
  std::condition_variable idle;
  std::size_t outstanding = 0;  // queued or running
  std::size_t running = 0;
  bool stopped = false;  // by the process's exit

  // Counts the task in before it is queued and out after it ran, so that
  // waitIdle() also covers tasks posted by tasks.
  Task wrap(Task task) {
    {
      std::lock_guard lock(mutex);
      ++outstanding;
    }
    return [this, task = std::move(task)] {
      {
        std::lock_guard lock(mutex);
        ++running;
      }
      try {
        task();
      } catch (...) {
        // Detached work must never take the host down.
      }
      std::lock_guard lock(mutex);
      --running;
      --outstanding;
      idle.notify_all();
    };
  }

  // At exit: queued tasks never start, running ones get the bound to end,
  // and the threads are joined once they have.
  void stopForExit() {
    pool.stop();
    std::unique_lock lock(mutex);
    stopped = true;
    const std::size_t self = pool.get_executor().running_in_this_thread() ? 1 : 0;
    const bool ended = idle.wait_for(lock, process_exit::kBound, [&] { return running <= self; });
    lock.unlock();
    if (ended && self == 0) pool.join();
  }
};

namespace {

// Every pool alive, for the exit hook.
struct LivePools {
  std::mutex mutex;
  std::vector<ThreadTaskPool::Impl*> pools;
};

LivePools& livePools() {
  static NoDestructor<LivePools> instance;
  static const bool hooked = [] {
    process_exit::addHook([] {
      std::lock_guard lock(livePools().mutex);
      for (auto* pool : livePools().pools) pool->stopForExit();
    });
    return true;
  }();
  (void)hooked;
  return *instance;
}

class StrandQueue final : public SerialQueue {
 public:
  StrandQueue(std::shared_ptr<ThreadTaskPool::Impl> impl, std::string label)
      : impl_(std::move(impl)), strand_(asio::make_strand(impl_->pool.get_executor())), label_(std::move(label)) {}

  void post(Task task) override { asio::post(strand_, impl_->wrap(std::move(task))); }
  const std::string& label() const override { return label_; }

 private:
  std::shared_ptr<ThreadTaskPool::Impl> impl_;
  asio::strand<asio::thread_pool::executor_type> strand_;
  std::string label_;
};

}  // namespace

ThreadTaskPool::ThreadTaskPool(unsigned threads) : impl_(std::make_shared<Impl>(threads == 0 ? 1 : threads)) {
  auto& live = livePools();
  std::lock_guard lock(live.mutex);
  live.pools.push_back(impl_.get());
}

ThreadTaskPool::~ThreadTaskPool() {
  {
    auto& live = livePools();
    std::lock_guard lock(live.mutex);
    std::erase(live.pools, impl_.get());
  }
  waitIdle();
  impl_->pool.join();
}

void ThreadTaskPool::post(Task task) { asio::post(impl_->pool, impl_->wrap(std::move(task))); }

std::shared_ptr<SerialQueue> ThreadTaskPool::makeSerialQueue(std::string label) {
  return std::make_shared<StrandQueue>(impl_, std::move(label));
}

void ThreadTaskPool::waitIdle() {
  std::unique_lock lock(impl_->mutex);
  // Once stopped, queued tasks never run: only the running ones count.
  impl_->idle.wait(lock, [this] { return impl_->outstanding == 0 || (impl_->stopped && impl_->running == 0); });
}

}  // namespace kiv
