// A platform bundle for tests: a manual main loop on a fake clock, a real
// task pool, a capturing console, and the fakes of the other services.
//
// Installed by the constructor; the destructor waits for the pool, resets
// every process-wide instance and uninstalls, so tests never leak state.
//
//   class MyTest : public kiv::testing::PlatformTest {};
//   TEST_F(MyTest, Something) { loop().advance(3.0); EXPECT_EQ(consoleLines(), ...); }
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kiv/platform/platform.hpp"
#include "platform/console/capturing_console.hpp"
#include "platform/dispatch/fake_clock.hpp"
#include "platform/dispatch/manual_main_loop.hpp"

namespace kiv::testing {

class TestPlatform {
 public:
  TestPlatform();
  ~TestPlatform();
  TestPlatform(const TestPlatform&) = delete;
  TestPlatform& operator=(const TestPlatform&) = delete;

  // Re-installs after a test changed bundle().
  void install();
  Platform& bundle() { return bundle_; }

  std::shared_ptr<FakeClock> clock;
  std::shared_ptr<ManualMainLoop> loop;
  std::shared_ptr<CapturingConsole> console;
  std::shared_ptr<TaskPool> pool;

 private:
  Platform bundle_;
};

class PlatformTest : public ::testing::Test {
 protected:
  ManualMainLoop& loop() { return *platform_.loop; }
  FakeClock& clock() { return *platform_.clock; }
  std::vector<std::string> consoleLines() { return platform_.console->lines(); }
  TestPlatform& testPlatform() { return platform_; }

 private:
  TestPlatform platform_;
};

}  // namespace kiv::testing
