// Whether the device has a usable network path.
//
// The analytics client resends its offline queue when the path becomes
// usable. A monitor reports on the serial queue it is started on: once right
// after start with the current status, then on every change.
//
//   auto monitor = kiv::platform()->pathMonitor->makeMonitor();
//   monitor->start(queue, [weak](kiv::NetworkPathStatus status) { ... });   // on `queue`
//   monitor->cancel();   // no report is delivered after this returns
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <functional>
#include <memory>

#include "kiv/platform/task_pool.hpp"

namespace kiv {

enum class NetworkPathStatus {
  satisfied,    // some interface other than loopback is up with an address
  unsatisfied,  // no such interface
};

class PathMonitor {
 public:
  using Handler = std::function<void(NetworkPathStatus)>;
  virtual ~PathMonitor() = default;
  // Starts reporting to `handler` on `queue`. A second start does nothing.
  virtual void start(std::shared_ptr<SerialQueue> queue, Handler handler) = 0;
  // Stops reporting; reports already posted to the queue are not delivered.
  // Idempotent; dropping the monitor cancels it too.
  virtual void cancel() = 0;
};

// The platform slot `pathMonitor`.
class PathMonitorFactory {
 public:
  virtual ~PathMonitorFactory() = default;
  // Safe from any thread.
  virtual std::shared_ptr<PathMonitor> makeMonitor() = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
