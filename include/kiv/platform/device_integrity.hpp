// Checks of the process environment that a liveness attempt must not run in
// (a debugger attached, an instrumentation agent loaded): once when an
// attempt starts and, through a monitor, during it.
//
//   if (auto violation = platform()->integrity->check()) fail(*violation);
//   auto monitor = platform()->integrity->startMonitor([](std::string violation) { ... });
//   ...
//   monitor->stop();
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kiv {

class DeviceIntegrityMonitor {
 public:
  virtual ~DeviceIntegrityMonitor() = default;
  // Stops watching; no report starts after it returns. Safe from any thread
  // and harmless a second time.
  virtual void stop() = 0;
};

class DeviceIntegrity {
 public:
  virtual ~DeviceIntegrity() = default;
  // A description of the violation found, or nothing. Safe from any thread.
  virtual std::optional<std::string> check() = 0;
  // Re-checks in the background until stopped and calls `onViolation` with
  // the description of the first violation found, on a thread of its
  // choosing (never the main queue's).
  virtual std::shared_ptr<DeviceIntegrityMonitor> startMonitor(std::function<void(std::string)> onViolation) = 0;
};

}  // namespace kiv
