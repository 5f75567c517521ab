#include "platform/crash/linux_crash_primitives.hpp"

#include <signal.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>

#include "support/child_process.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"

namespace kiv {
namespace {

namespace fs = std::filesystem;

class CrashPrimitivesTest : public testing::PlatformTest {
 protected:
  testing::TemporaryDirectory scratch;
  const fs::path& root = scratch.path();
};

std::atomic<int> gHostSegvCalls{0};
void hostSegvHandler(int, siginfo_t*, void*) { gHostSegvCalls.fetch_add(1); }

TEST_F(CrashPrimitivesTest, AHostsOwnSegvHandlerComesBackAfterUninstall) {
  struct sigaction original {};
  sigaction(SIGSEGV, nullptr, &original);
  struct sigaction host {};
  host.sa_sigaction = hostSegvHandler;
  host.sa_flags = SA_SIGINFO;
  sigemptyset(&host.sa_mask);
  ASSERT_EQ(sigaction(SIGSEGV, &host, nullptr), 0);

  testPlatform().bundle().crash = makeLinuxCrashPrimitives(root);
  testPlatform().install();
  auto handler = KivCrashHandler::shared();
  handler->install("kiv.sdk.service", true);
  testPlatform().pool->waitIdle();

  struct sigaction current {};
  sigaction(SIGSEGV, nullptr, &current);
  EXPECT_NE(current.sa_sigaction, hostSegvHandler);
  EXPECT_EQ(current.sa_flags & (SA_SIGINFO | SA_ONSTACK), SA_SIGINFO | SA_ONSTACK);
  for (int signal : kCrashSignals) EXPECT_TRUE(sigismember(&current.sa_mask, signal)) << signal;

  handler->uninstall();
  sigaction(SIGSEGV, nullptr, &current);
  EXPECT_EQ(current.sa_sigaction, hostSegvHandler);
  raise(SIGSEGV);
  EXPECT_EQ(gHostSegvCalls.load(), 1);
  sigaction(SIGSEGV, &original, nullptr);
}

TEST_F(CrashPrimitivesTest, SlotsAreLockedByTheirLiveProcessAndLeftOnesAreTakenOver) {
  const fs::path directory = root / "store";
  LinuxCrashPrimitives primitives(directory);
  auto own = primitives.openCrashSlot();
  ASSERT_TRUE(own);
  EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
  ASSERT_TRUE(own->write("a longer record"));
  ASSERT_TRUE(own->write("short"));
  EXPECT_EQ(own->read(), "short");
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    ++files;
    EXPECT_EQ(entry.status().permissions(), fs::perms::owner_read | fs::perms::owner_write);
  }
  EXPECT_EQ(files, 1u);

  // Another process's live slot is skipped; an ended one's is handed over.
  EXPECT_TRUE(primitives.leftCrashSlots().empty());
  std::ofstream(directory / "crash-1-ended.slot") << "left behind";
  std::ofstream(directory / "crash-2-unfinished.tmp") << "not yet a slot";
  auto left = primitives.leftCrashSlots();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0]->read(), "left behind");
  EXPECT_TRUE(LinuxCrashPrimitives(directory).leftCrashSlots().empty());  // while it is held here
  left[0]->clear();
  EXPECT_FALSE(fs::exists(directory / "crash-1-ended.slot"));

  // A slot still written when its process ends becomes someone else's to
  // take; a cleared one is gone.
  auto other = primitives.openCrashSlot();
  ASSERT_TRUE(other && other->write("record"));
  own->clear();
  EXPECT_EQ(own->read(), "");
  own.reset();
  other.reset();
  left = primitives.leftCrashSlots();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0]->read(), "record");
}

// The pipe and the alternate stack are exercised by the crash processes.
TEST_F(CrashPrimitivesTest, FramesAreCapturedAndDescribedAsModuleAndOffset) {
  LinuxCrashPrimitives primitives(root);
  primitives.prepareCapture();
  void* frames[32];
  const std::size_t count = primitives.captureFrames(frames);
  ASSERT_GT(count, 2u);
  char line[512];
  const std::string described(line, primitives.describeFrame(frames[0], line));
  EXPECT_NE(described.find("(+0x"), std::string::npos) << described;
  EXPECT_EQ(described.back(), ']');
  EXPECT_EQ(primitives.symbolizeFrames(std::span<void* const>(frames, count)).size(), count);
}

}  // namespace
}  // namespace kiv
