// The network path monitor over rtnetlink: a socket on NETLINK_ROUTE wakes
// the monitor on every link, address or route change, and the status is read
// again from the interface list and the routing tables. Satisfied when an
// interface other than loopback is up and running with an IPv4 or IPv6
// address and a route leads out through it.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "kiv/platform/path_monitor.hpp"

namespace kiv {

class NetlinkPathMonitorFactory final : public PathMonitorFactory {
 public:
  // Each started monitor runs one thread that waits on its netlink socket.
  std::shared_ptr<PathMonitor> makeMonitor() override;
};

// The status the interface list and routing tables give right now.
NetworkPathStatus currentNetworkPathStatus();

// Whether the kernel's routing tables, as /proc/net/route and
// /proc/net/ipv6_route print them, hold a route that is up through one of
// `interfaces`. IPv6 link-local, multicast and local (own address) routes
// do not count: every interface has them, connected or not.
bool hasRouteThrough(std::string_view ipv4Table, std::string_view ipv6Table, const std::set<std::string>& interfaces);

}  // namespace kiv
