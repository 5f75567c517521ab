#include "platform/dispatch/thread_task_pool.hpp"

#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <condition_variable>
#include <mutex>

namespace kiv {

struct ThreadTaskPool::Impl {
  explicit Impl(unsigned threads) : pool(threads) {}

  asio::thread_pool pool;
  std::mutex mutex;
  std::condition_variable idle;
  std::size_t outstanding = 0;  // queued or running

  // Counts the task in before it is queued and out after it ran, so that
  // waitIdle() also covers tasks posted by tasks.
  Task wrap(Task task) {
    {
      std::lock_guard lock(mutex);
      ++outstanding;
    }
    return [this, task = std::move(task)] {
      try {
        task();
      } catch (...) {
        // Detached work must never take the host down.
      }
      std::lock_guard lock(mutex);
      if (--outstanding == 0) idle.notify_all();
    };
  }
};

namespace {

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

ThreadTaskPool::ThreadTaskPool(unsigned threads) : impl_(std::make_shared<Impl>(threads == 0 ? 1 : threads)) {}

ThreadTaskPool::~ThreadTaskPool() {
  waitIdle();
  impl_->pool.join();
}

void ThreadTaskPool::post(Task task) { asio::post(impl_->pool, impl_->wrap(std::move(task))); }

std::shared_ptr<SerialQueue> ThreadTaskPool::makeSerialQueue(std::string label) {
  return std::make_shared<StrandQueue>(impl_, std::move(label));
}

void ThreadTaskPool::waitIdle() {
  std::unique_lock lock(impl_->mutex);
  impl_->idle.wait(lock, [this] { return impl_->outstanding == 0; });
}

}  // namespace kiv
