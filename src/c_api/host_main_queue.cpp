#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "c_api/host_services.hpp"

namespace kiv::c_api {
namespace {

struct Waiting {
  Task task;
  const void* queue = nullptr;
  OwnerToken owner = nullptr;
  std::shared_ptr<std::atomic<bool>> cancelled;  // delayed tasks only
  std::optional<std::uint64_t> hostHandle;       // delayed tasks only, once post_after returned
};

class TaskTable {
 public:
  std::uintptr_t add(Waiting waiting) {
    std::lock_guard lock(mutex_);
    const auto number = next_++;
    tasks_.emplace(number, std::move(waiting));
    return number;
  }
  std::optional<Waiting> take(std::uintptr_t number) {
    std::lock_guard lock(mutex_);
    auto found = tasks_.find(number);
    if (found == tasks_.end()) return std::nullopt;
    auto waiting = std::move(found->second);
    tasks_.erase(found);
    return waiting;
  }
  // A delayed task that already ran has nothing left to record.
  void setHostHandle(std::uintptr_t number, std::uint64_t handle) {
    std::lock_guard lock(mutex_);
    if (auto found = tasks_.find(number); found != tasks_.end()) found->second.hostHandle = handle;
  }
  // Drops the delayed tasks of `owner` on `queue`; the host handles of those
  // the host holds a timer for.
  std::vector<std::uint64_t> dropOwned(const void* queue, OwnerToken owner) {
    std::vector<std::uint64_t> handles;
    std::vector<Task> dropped;  // released after the lock is let go
    std::lock_guard lock(mutex_);
    for (auto it = tasks_.begin(); it != tasks_.end();) {
      if (it->second.queue == queue && it->second.owner == owner && it->second.cancelled) {
        if (it->second.hostHandle) handles.push_back(*it->second.hostHandle);
        dropped.push_back(std::move(it->second.task));
        it = tasks_.erase(it);
      } else {
        ++it;
      }
    }
    return handles;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::uintptr_t, Waiting> tasks_;
  std::uintptr_t next_ = 1;
};

// Never destroyed: a host may run a task while the process exits.
TaskTable& table() {
  static auto* instance = new TaskTable;
  return *instance;
}

void* asTaskData(std::uintptr_t number) { return reinterpret_cast<void*>(number); }

void runWaiting(void* taskData) {
  auto waiting = table().take(reinterpret_cast<std::uintptr_t>(taskData));
  if (!waiting || (waiting->cancelled && waiting->cancelled->load())) return;
  // Nothing may unwind into the host's C frames.
  try {
    waiting->task();
  } catch (...) {
  }
}

class HostMainQueue final : public MainQueue {
 public:
  explicit HostMainQueue(const kiv_main_queue& functions) : functions_(functions) {}

  void post(Task task) override {
    const auto number = table().add({std::move(task), this, nullptr, nullptr, std::nullopt});
    functions_.post(functions_.user_data, runWaiting, asTaskData(number));
  }

  DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner) override {
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    const auto number = table().add({std::move(task), this, owner, cancelled, std::nullopt});
    const auto handle =
        functions_.post_after(functions_.user_data, std::max(seconds, 0.0), runWaiting, asTaskData(number));
    table().setHostHandle(number, handle);
    return DelayedTaskHandle(std::move(cancelled));
  }

  void cancelAll(OwnerToken owner) override {
    for (auto handle : table().dropOwned(this, owner)) {
      if (functions_.cancel_delayed != nullptr) functions_.cancel_delayed(functions_.user_data, handle);
    }
  }

  bool isCurrent() const override { return functions_.is_current(functions_.user_data) != 0; }

 private:
  const kiv_main_queue functions_;
};

}  // namespace

std::shared_ptr<MainQueue> makeHostMainQueue(const kiv_main_queue& functions) {
  return std::make_shared<HostMainQueue>(functions);
}

}  // namespace kiv::c_api
