#include "platform/integrity/fake_device_integrity.hpp"

#include <algorithm>

namespace kiv {

class FakeDeviceIntegrity::Monitor final : public DeviceIntegrityMonitor {
 public:
  explicit Monitor(std::function<void(std::string)> onViolation) : onViolation_(std::move(onViolation)) {}

  void stop() override {
    std::lock_guard lock(mutex_);
    stopped_ = true;
  }

  bool running() const {
    std::lock_guard lock(mutex_);
    return !stopped_;
  }

  // The callback, once, unless stopped.
  std::function<void(std::string)> takeReport() {
    std::lock_guard lock(mutex_);
    if (stopped_ || reported_) return {};
    reported_ = true;
    return onViolation_;
  }

 private:
  mutable std::mutex mutex_;
  const std::function<void(std::string)> onViolation_;
  bool stopped_ = false;
  bool reported_ = false;
};

void FakeDeviceIntegrity::setViolationAtStart(std::optional<std::string> violation) {
  std::lock_guard lock(mutex_);
  violationAtStart_ = std::move(violation);
}

void FakeDeviceIntegrity::reportViolation(std::string violation) {
  std::vector<std::shared_ptr<Monitor>> live;
  {
    std::lock_guard lock(mutex_);
    for (const auto& weak : monitors_) {
      if (auto monitor = weak.lock()) live.push_back(std::move(monitor));
    }
  }
  for (const auto& monitor : live) {
    if (auto report = monitor->takeReport()) report(violation);
  }
}

std::size_t FakeDeviceIntegrity::runningMonitors() const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::ranges::count_if(monitors_, [](const auto& weak) {
    auto monitor = weak.lock();
    return monitor && monitor->running();
  }));
}

std::size_t FakeDeviceIntegrity::startedMonitors() const {
  std::lock_guard lock(mutex_);
  return started_;
}

std::optional<std::string> FakeDeviceIntegrity::check() {
  std::lock_guard lock(mutex_);
  return violationAtStart_;
}

std::shared_ptr<DeviceIntegrityMonitor> FakeDeviceIntegrity::startMonitor(
    std::function<void(std::string)> onViolation) {
  auto monitor = std::make_shared<Monitor>(std::move(onViolation));
  std::lock_guard lock(mutex_);
  std::erase_if(monitors_, [](const auto& weak) { return weak.expired(); });
  monitors_.push_back(monitor);
  ++started_;
  return monitor;
}

}  // namespace kiv
