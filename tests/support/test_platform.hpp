// A platform bundle for tests: a manual main loop on a fake clock, a task
// pool, a capturing console, and the fakes of the other services.
//
// Installed by the constructor; the destructor waits for the pool, resets
// every process-wide instance and uninstalls, so tests never leak state.
//
//   class MyTest : public kiv::testing::PlatformTest {};
//   TEST_F(MyTest, Something) { loop().advance(3.0); EXPECT_EQ(consoleLines(), ...); }
//
// The pool is a real one of four threads unless the test asks for the
// manual pool (ManualPoolPlatformTest, or TestPlatform(Pool::manual)): its
// tasks and serial queues then run on the manual loop, in posting order,
// when the test runs the loop, so a whole attempt (the vendor's queue, the
// integrity monitor's queue, analytics tasks) gives one trace every time.
// Code that waits on the pool from the main thread (waitIdle()) runs the
// loop instead. Tests that need real threads (a pool task blocking on
// another) keep the default.
//
//   class MyAttemptTest : public kiv::testing::ManualPoolPlatformTest {};
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
  enum class Pool {
    threads,  // a ThreadTaskPool of four threads
    manual,   // a ManualTaskPool on `loop`
  };

  explicit TestPlatform(Pool pool = Pool::threads);
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
  PlatformTest() = default;
  explicit PlatformTest(TestPlatform::Pool pool) : platform_(pool) {}

  ManualMainLoop& loop() { return *platform_.loop; }
  FakeClock& clock() { return *platform_.clock; }
  std::vector<std::string> consoleLines() { return platform_.console->lines(); }
  TestPlatform& testPlatform() { return platform_; }

 private:
  TestPlatform platform_;
};

// PlatformTest with the task pool on the manual loop.
class ManualPoolPlatformTest : public PlatformTest {
 protected:
  ManualPoolPlatformTest() : PlatformTest(TestPlatform::Pool::manual) {}
};

}  // namespace kiv::testing
