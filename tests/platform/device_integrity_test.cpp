#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/integrity/linux_device_integrity.hpp"
#include "support/child_process.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

struct ParseCase {
  std::string name;
  std::string text;
  std::optional<std::string> violation;
};

TEST(TracerStatus, ReportsATracerOnlyWhenTracerPidNamesOne) {
  for (const auto& c : std::vector<ParseCase>{
           {"NotTraced", "Name:\tkivfll\nState:\tR (running)\nTracerPid:\t0\nUid:\t1000\n", {}},
           {"Traced", "Name:\tkivfll\nTracerPid:\t4242\nUid:\t1000\n", "a debugger is attached (TracerPid 4242)"},
           {"LastLineWithoutNewlineAndCarriageReturn", "Name:\tx\nTracerPid: 17\r",
            "a debugger is attached (TracerPid 17)"},
           {"NotANumber", "TracerPid:\tlots\n", {}},
           {"OnlyAtTheStartOfALine", "XTracerPid:\t5\nTracerPid:\t0\n", {}},
           {"Binary", std::string("\0\xff\nTracerPid:\t\xff", 15), {}}}) {
    EXPECT_EQ(tracerViolation(c.text), c.violation) << c.name;
  }
}

TEST(InstrumentationMaps, ReportsAnInstrumentationLibraryByItsFileName) {
  const std::string libc = "7f0c1a000000-7f0c1a028000 r--p 00000000 08:01 1835 /usr/lib/x86_64-linux-gnu/libc.so.6\n";
  const std::string anonymous =
      "7ffd5a1e0000-7ffd5a201000 rw-p 00000000 00:00 0                          [stack]\n"
      "7f0c19e00000-7f0c19e21000 rw-p 00000000 00:00 0 \n";
  for (const auto& c : std::vector<ParseCase>{
           {"Clean", libc + anonymous, {}},
           {"FridaAgent", libc + "7f0c1b000000-7f0c1b100000 r-xp 00000000 08:01 99 /tmp/frida-5e1f/frida-agent-64.so\n",
            "an instrumentation toolkit is loaded (frida-agent-64.so)"},
           {"FromMemoryAndDeleted", "7f0c1b000000-7f0c1b100000 r-xp 00000000 00:01 7 /memfd:Frida-Gadget (deleted)",
            "an instrumentation toolkit is loaded (memfd:Frida-Gadget (deleted))"},
           {"OnlyADirectoryNamedSo", "7f0c1b000000-7f0c1b100000 r-xp 00000000 08:01 8 /home/frida/lib/libz.so\n", {}},
           {"ShortAndOddLines", "frida\n1 2 3 4 frida\n\n\n   \n", {}},
           {"LongNamesAreCut", "1-2 r-xp 0 08:01 8 /x/frida" + std::string(300, 'a') + "\n",
            "an instrumentation toolkit is loaded (frida" + std::string(115, 'a') + ")"}}) {
    EXPECT_EQ(instrumentationViolation(c.text), c.violation) << c.name;
  }
}

// A process directory the test writes: status and maps as the kernel would.
class ProcessDirectory : public testing::TemporaryDirectory {
 public:
  ProcessDirectory() { write("TracerPid:\t0\n", ""); }
  void write(const std::string& status, const std::string& maps) {
    std::ofstream(path() / "status") << status;
    std::ofstream(path() / "maps") << maps;
  }
};

TEST(LinuxDeviceIntegrity, ChecksTheFilesOfItsProcessDirectory) {
  ProcessDirectory dir;
  LinuxDeviceIntegrity integrity(dir.path());
  EXPECT_EQ(integrity.check(), std::nullopt);
  dir.write("TracerPid:\t0\n", "1-2 r-xp 0 08:01 8 /tmp/frida-agent-32.so\n");
  EXPECT_EQ(integrity.check(), "an instrumentation toolkit is loaded (frida-agent-32.so)");
  dir.write("TracerPid:\t31\n", "1-2 r-xp 0 08:01 8 /tmp/frida-agent-32.so\n");
  EXPECT_EQ(integrity.check(), "a debugger is attached (TracerPid 31)");
  std::filesystem::remove_all(dir.path());
  EXPECT_EQ(integrity.check(), std::nullopt);  // nothing to read is no finding
}

class IntegrityMonitorTest : public testing::ManualPoolPlatformTest {
 protected:
  // Each report as "<seconds> <violation>", with " (main)" if it was made on
  // the main thread.
  std::function<void(std::string)> recorder() {
    return [this](std::string violation) {
      reports.push_back(std::to_string(static_cast<int>(secondsBetween(start, clock().now()))) + " " + violation +
                        (loop().isCurrent() ? " (main)" : ""));
      if (onReport) onReport();
    };
  }

  ProcessDirectory dir;
  LinuxDeviceIntegrity integrity{dir.path()};
  TimePoint start = clock().now();
  std::vector<std::string> reports;
  std::function<void()> onReport;
};

// One monitor is stopped from inside its report (which must not block), the
// other never is: each reports once and leaves no timer behind.
TEST_F(IntegrityMonitorTest, RechecksEveryTwoSecondsOffTheMainThreadAndReportsOnce) {
  std::shared_ptr<DeviceIntegrityMonitor> stopped;
  onReport = [&] { stopped->stop(); };
  stopped = integrity.startMonitor(recorder());
  const auto kept = integrity.startMonitor(recorder());
  loop().advance(3.9);
  dir.write("TracerPid:\t77\n", "");
  loop().advance(0.1);  // the check at 4 s finds it
  loop().advance(10);
  EXPECT_EQ(reports, std::vector<std::string>(2, "4 a debugger is attached (TracerPid 77)"));
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
}

TEST_F(IntegrityMonitorTest, StoppingOrDroppingTheMonitorCancelsItsTimer) {
  auto stopped = integrity.startMonitor(recorder());
  auto dropped = integrity.startMonitor(recorder());
  loop().advance(2);
  stopped->stop();
  stopped->stop();
  dropped.reset();
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
  dir.write("TracerPid:\t77\n", "");
  loop().advance(10);
  EXPECT_TRUE(reports.empty());
}

}  // namespace
}  // namespace kiv
