#include "platform/dispatch/manual_task_pool.hpp"

namespace kiv {
namespace {

void enqueue(const std::weak_ptr<ManualMainLoop>& weakLoop, const std::shared_ptr<ManualTaskPool::State>& state,
             Task task) {
  auto loop = weakLoop.lock();
  if (!loop) return;
  {
    std::lock_guard lock(state->mutex);
    ++state->outstanding;
  }
  loop->postOffMain([state, task = std::move(task)] {
    try {
      task();
    } catch (...) {
      // Detached work must never take the host down.
    }
    std::lock_guard lock(state->mutex);
    if (--state->outstanding == 0) state->idle.notify_all();
  });
}

// On one thread every queue is serial already: the loop runs its tasks one
// at a time in posting order.
class LoopQueue final : public SerialQueue {
 public:
  LoopQueue(std::weak_ptr<ManualMainLoop> loop, std::shared_ptr<ManualTaskPool::State> state, std::string label)
      : loop_(std::move(loop)), state_(std::move(state)), label_(std::move(label)) {}

  void post(Task task) override { enqueue(loop_, state_, std::move(task)); }
  const std::string& label() const override { return label_; }

 private:
  std::weak_ptr<ManualMainLoop> loop_;
  std::shared_ptr<ManualTaskPool::State> state_;
  std::string label_;
};

}  // namespace

ManualTaskPool::ManualTaskPool(std::shared_ptr<ManualMainLoop> loop)
    : loop_(loop), state_(std::make_shared<State>()), loopThread_(std::this_thread::get_id()) {}

void ManualTaskPool::post(Task task) { enqueue(loop_, state_, std::move(task)); }

std::shared_ptr<SerialQueue> ManualTaskPool::makeSerialQueue(std::string label) {
  return std::make_shared<LoopQueue>(loop_, state_, std::move(label));
}

void ManualTaskPool::waitIdle() {
  if (std::this_thread::get_id() == loopThread_) {
    if (auto loop = loop_.lock()) loop->runWhile([this] { return outstanding() > 0; });
    return;
  }
  std::unique_lock lock(state_->mutex);
  state_->idle.wait(lock, [this] { return state_->outstanding == 0; });
}

std::size_t ManualTaskPool::outstanding() const {
  std::lock_guard lock(state_->mutex);
  return state_->outstanding;
}

}  // namespace kiv
