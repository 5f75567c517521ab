// Device integrity whose findings are set by a test: a violation before the
// attempt starts, or one reported to every running monitor when the test
// says so.
//
//   auto integrity = std::make_shared<FakeDeviceIntegrity>();
//   integrity->setViolationAtStart("a debugger is attached (TracerPid 7)");   // check() reports it
//   integrity->reportViolation("frida-agent-64.so");   // each running monitor's callback, on this thread
//   EXPECT_EQ(integrity->runningMonitors(), 0u);     // the attempt stopped its monitor
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kiv/platform/device_integrity.hpp"

namespace kiv {

class FakeDeviceIntegrity final : public DeviceIntegrity {
 public:
  // What check() reports from now on; nothing by default.
  void setViolationAtStart(std::optional<std::string> violation);

  // Calls the callback of every running monitor that has not reported yet,
  // on the calling thread, outside the fake's lock (a callback may stop its
  // monitor). A monitor stays running after it reported, until it is
  // stopped or dropped, so a test sees whether its owner stopped it.
  void reportViolation(std::string violation);

  // Monitors started and neither stopped nor dropped. Safe from any thread.
  std::size_t runningMonitors() const;
  // Monitors started so far.
  std::size_t startedMonitors() const;

  std::optional<std::string> check() override;
  std::shared_ptr<DeviceIntegrityMonitor> startMonitor(std::function<void(std::string)> onViolation) override;

 private:
  class Monitor;
  mutable std::mutex mutex_;
  std::optional<std::string> violationAtStart_;
  std::vector<std::weak_ptr<Monitor>> monitors_;
  std::size_t started_ = 0;
};

}  // namespace kiv
