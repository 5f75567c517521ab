#include "platform/path_monitor/fake_path_monitor.hpp"

#include <atomic>

namespace kiv {

class FakePathMonitorFactory::Monitor final : public PathMonitor {
 public:
  void start(std::shared_ptr<SerialQueue> queue, Handler handler) override {
    std::lock_guard lock(mutex_);
    if (queue_ || cancelled_) return;
    queue_ = std::move(queue);
    handler_ = std::make_shared<Handler>(std::move(handler));
  }

  void cancel() override {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    handler_.reset();
  }

  bool started() const {
    std::lock_guard lock(mutex_);
    return queue_ != nullptr && !cancelled_;
  }

  void report(NetworkPathStatus status) {
    std::shared_ptr<SerialQueue> queue;
    std::weak_ptr<Handler> handler;
    {
      std::lock_guard lock(mutex_);
      if (!queue_ || cancelled_) return;
      queue = queue_;
      handler = handler_;
    }
    // Only the monitor owns the handler, so a cancel before the queue runs
    // the report wins.
    queue->post([handler, status] {
      if (auto live = handler.lock()) (*live)(status);
    });
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<SerialQueue> queue_;
  std::shared_ptr<Handler> handler_;
  bool cancelled_ = false;
};

FakePathMonitorFactory::FakePathMonitorFactory(NetworkPathStatus status) : status_(status) {}

std::shared_ptr<PathMonitor> FakePathMonitorFactory::makeMonitor() {
  // The first report is made on start, which the factory does not see: the
  // wrapper below forwards start and reports the status current at that time.
  class Starting final : public PathMonitor {
   public:
    Starting(std::shared_ptr<Monitor> monitor, std::shared_ptr<const FakePathMonitorFactory> factory)
        : monitor_(std::move(monitor)), factory_(std::move(factory)) {}
    ~Starting() override { monitor_->cancel(); }
    void start(std::shared_ptr<SerialQueue> queue, Handler handler) override {
      if (monitor_->started()) return;
      monitor_->start(std::move(queue), std::move(handler));
      monitor_->report(factory_->status());
    }
    void cancel() override { monitor_->cancel(); }

   private:
    std::shared_ptr<Monitor> monitor_;
    std::shared_ptr<const FakePathMonitorFactory> factory_;
  };
  auto monitor = std::make_shared<Monitor>();
  {
    std::lock_guard lock(mutex_);
    std::erase_if(monitors_, [](const auto& weak) { return weak.expired(); });
    monitors_.push_back(monitor);
  }
  return std::make_shared<Starting>(monitor, shared_from_this());
}

void FakePathMonitorFactory::setStatus(NetworkPathStatus status) {
  std::vector<std::shared_ptr<Monitor>> live;
  {
    std::lock_guard lock(mutex_);
    status_ = status;
    for (const auto& weak : monitors_) {
      if (auto monitor = weak.lock()) live.push_back(std::move(monitor));
    }
  }
  for (const auto& monitor : live) monitor->report(status);
}

NetworkPathStatus FakePathMonitorFactory::status() const {
  std::lock_guard lock(mutex_);
  return status_;
}

}  // namespace kiv
