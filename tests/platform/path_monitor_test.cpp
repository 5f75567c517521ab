#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/path_monitor/netlink_path_monitor.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class PathMonitorTest : public testing::PlatformTest {
 protected:
  std::shared_ptr<SerialQueue> queue = platform()->taskPool->makeSerialQueue("kiv.analytics.pathmonitor");
  std::mutex mutex;
  std::vector<NetworkPathStatus> reports;
  PathMonitor::Handler record() {
    return [this](NetworkPathStatus status) {
      std::lock_guard lock(mutex);
      reports.push_back(status);
    };
  }
};

TEST_F(PathMonitorTest, NetlinkMonitorReportsTheCurrentStatusOnceAfterStart) {
  auto monitor = NetlinkPathMonitorFactory().makeMonitor();
  monitor->start(queue, record());
  // The first report is made before the thread first waits; the pool then
  // runs it.
  for (;;) {
    testPlatform().pool->waitIdle();
    std::lock_guard lock(mutex);
    if (!reports.empty()) break;
  }
  monitor->cancel();
  testPlatform().pool->waitIdle();
  std::lock_guard lock(mutex);
  EXPECT_EQ(reports.front(), currentNetworkPathStatus());
}

constexpr const char* kIpv4Heading = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\n";
constexpr const char* kIpv6OnlyOnLink =
    "fe800000000000000000000000000000 40 00000000000000000000000000000000 00 00000000000000000000000000000000 "
    "00000100 00000001 00000000 00000001     eth0\n"
    "fd000000000000000000000000000002 80 00000000000000000000000000000000 00 00000000000000000000000000000000 "
    "00000000 00000004 00000000 80200001     eth0\n"
    "ff000000000000000000000000000000 08 00000000000000000000000000000000 00 00000000000000000000000000000000 "
    "00000100 00000003 00000000 00000001     eth0\n";

TEST(RouteTables, OnlyARouteUpThroughAUsableInterfaceCounts) {
  const std::set<std::string> eth0{"eth0"};
  const std::string ipv4Default = std::string(kIpv4Heading) + "eth0\t00000000\t010200C0\t0003\t0\t0\t0\t00000000\n";
  const std::string ipv4Down = std::string(kIpv4Heading) + "eth0\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\n";
  const std::string ipv6Default = std::string(kIpv6OnlyOnLink) +
                                  "00000000000000000000000000000000 00 00000000000000000000000000000000 00 "
                                  "fd000000000000000000000000000001 00000400 00000003 00000000 00000003     eth0\n";

  EXPECT_TRUE(hasRouteThrough(ipv4Default, "", eth0));
  EXPECT_FALSE(hasRouteThrough(ipv4Default, "", {"wlan0"}));  // the route's interface is down
  EXPECT_FALSE(hasRouteThrough(ipv4Down, "", eth0));          // the route itself is not up
  EXPECT_FALSE(hasRouteThrough(kIpv4Heading, kIpv6OnlyOnLink, eth0));
  EXPECT_TRUE(hasRouteThrough(kIpv4Heading, ipv6Default, eth0));
  EXPECT_FALSE(hasRouteThrough("garbage\n\n\t", "zz 1 2\n", eth0));
}

}  // namespace
}  // namespace kiv
