// The network path monitor over rtnetlink: a socket on NETLINK_ROUTE wakes
// the monitor on every link, address or route change, and the status is read
// again from the interface list. Satisfied when an interface other than
// loopback is up and running with an IPv4 or IPv6 address.
#pragma once

#include "kiv/platform/path_monitor.hpp"

namespace kiv {

class NetlinkPathMonitorFactory final : public PathMonitorFactory {
 public:
  // Each started monitor runs one thread that waits on its netlink socket.
  std::shared_ptr<PathMonitor> makeMonitor() override;
};

// The status the interface list gives right now.
NetworkPathStatus currentNetworkPathStatus();

}  // namespace kiv
