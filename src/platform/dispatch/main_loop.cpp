#include "kiv/platform/main_loop.hpp"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>
#include <utility>
#include "base/delay.hpp"

namespace kiv {

struct MainLoop::State {
  struct Pending {
    OwnerToken owner;
    DelayedTaskHandle handle;
    std::shared_ptr<asio::steady_timer> timer;
  };

  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  std::atomic<std::thread::id> runner{};
  std::mutex mutex;
  std::list<Pending> pending;  // delayed tasks not yet run or dropped
  // A stop made while no run is under way waits for the next one, which it
  // ends at once; Asio's own stop would be undone by that run's restart.
  std::mutex runMutex;
  bool running = false;
  bool stopPending = false;
};

MainLoop::MainLoop() : state_(std::make_shared<State>()) {}

MainLoop::~MainLoop() { stop(); }

void MainLoop::run() {
  {
    std::lock_guard lock(state_->runMutex);
    if (std::exchange(state_->stopPending, false)) return;
    state_->running = true;
    state_->context.restart();
  }
  // A stop from here on finds the context running, or about to: either way
  // run() returns once it sees it.
  state_->runner = std::this_thread::get_id();
  state_->context.run();
  state_->runner = std::thread::id{};
  std::lock_guard lock(state_->runMutex);
  state_->running = false;
}

void MainLoop::stop() {
  std::lock_guard lock(state_->runMutex);
  if (state_->running) {
    state_->context.stop();
  } else {
    state_->stopPending = true;
  }
}

void MainLoop::post(Task task) {
  asio::post(state_->context, [task = std::move(task)] { task(); });
}

DelayedTaskHandle MainLoop::postAfter(double seconds, Task task, OwnerToken owner) {
  DelayedTaskHandle handle(std::make_shared<std::atomic<bool>>(false));
  auto timer = std::make_shared<asio::steady_timer>(state_->context);
  std::list<State::Pending>::iterator entry;
  {
    std::lock_guard lock(state_->mutex);
    entry = state_->pending.insert(state_->pending.end(), State::Pending{owner, handle, timer});
  }
  // The timer is armed on the loop's own thread: Asio timers are not safe to
  // touch from two threads at once.
  std::weak_ptr<State> weak = state_;
  auto delay = std::chrono::duration_cast<std::chrono::steady_clock::duration>(delayFromSeconds(seconds));
  asio::post(state_->context, [weak, timer, delay, handle, entry, task = std::move(task)]() mutable {
    timer->expires_after(delay);
    timer->async_wait([weak, handle, entry, task = std::move(task)](const std::error_code& error) {
      auto state = weak.lock();
      if (!state) return;
      {
        std::lock_guard lock(state->mutex);
        state->pending.erase(entry);
      }
      if (!error && !handle.isCancelled()) task();
    });
  });
  return handle;
}

void MainLoop::cancelAll(OwnerToken owner) {
  std::lock_guard lock(state_->mutex);
  for (auto& p : state_->pending) {
    if (p.owner != owner) continue;
    p.handle.cancel();
    // Fire the timer now so the task (and what it captured) is released.
    asio::post(state_->context, [timer = p.timer] { timer->cancel(); });
  }
}

bool MainLoop::isCurrent() const { return state_->runner.load() == std::this_thread::get_id(); }

}  // namespace kiv
