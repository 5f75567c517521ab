#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/path_monitor/fake_path_monitor.hpp"
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

TEST_F(PathMonitorTest, FakeMonitorReportsOnStartAndEveryFlipUntilCancelled) {
  auto network = std::make_shared<FakePathMonitorFactory>(NetworkPathStatus::unsatisfied);
  auto monitor = network->makeMonitor();
  monitor->start(queue, record());
  network->setStatus(NetworkPathStatus::satisfied);
  testPlatform().pool->waitIdle();
  monitor->cancel();
  network->setStatus(NetworkPathStatus::unsatisfied);
  testPlatform().pool->waitIdle();
  std::lock_guard lock(mutex);
  EXPECT_EQ(reports, (std::vector{NetworkPathStatus::unsatisfied, NetworkPathStatus::satisfied}));
}

}  // namespace
}  // namespace kiv
