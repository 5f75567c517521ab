// Path monitors whose status is set by their owner: a test flips the network
// on and off, and a host or demo that only talks to loopback keeps it
// satisfied for good.
//
//   auto network = std::make_shared<FakePathMonitorFactory>(NetworkPathStatus::unsatisfied);
//   ... start a client ...
//   network->setStatus(NetworkPathStatus::satisfied);   // every started monitor reports it
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "kiv/platform/path_monitor.hpp"

namespace kiv {

class FakePathMonitorFactory final : public PathMonitorFactory,
                                     public std::enable_shared_from_this<FakePathMonitorFactory> {
 public:
  explicit FakePathMonitorFactory(NetworkPathStatus status = NetworkPathStatus::unsatisfied);

  std::shared_ptr<PathMonitor> makeMonitor() override;

  // Reports `status` on every started, uncancelled monitor, even when it is
  // the status they already have (a real monitor may repeat itself too).
  void setStatus(NetworkPathStatus status);
  NetworkPathStatus status() const;

 private:
  class Monitor;
  mutable std::mutex mutex_;
  NetworkPathStatus status_;
  std::vector<std::weak_ptr<Monitor>> monitors_;
};

}  // namespace kiv
