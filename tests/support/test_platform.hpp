// A platform bundle for tests: a manual main loop on a fake clock, a task
// pool, a capturing console, and the fakes of the other services.
//
// Installed by the constructor; the destructor waits for the pool, resets
// every process-wide instance and uninstalls, so tests never leak state.
//
//   class MyTest : public kiv::testing::PlatformTest {};
//   TEST_F(MyTest, Something) { loop().advance(3.0); EXPECT_EQ(consoleLines(), ...); }
//
// The fakes are reached typed: fakeCapture().setScript(...), fakeStore().items().
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

#include "kiv/testing/simulated_capture_vendor.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/camera/fake_camera_authorization.hpp"
#include "platform/console/capturing_console.hpp"
#include "platform/crash/fake_crash_primitives.hpp"
#include "platform/device/fixed_device_identity.hpp"
#include "platform/dispatch/fake_clock.hpp"
#include "platform/dispatch/manual_main_loop.hpp"
#include "platform/integrity/fake_device_integrity.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"
#include "platform/secure_store/memory_secure_store.hpp"

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
  // The fakes installed with the bundle, typed; a test that puts another
  // service in bundle() holds that one itself.
  std::shared_ptr<MemorySecureStore> store = std::make_shared<MemorySecureStore>();
  std::shared_ptr<FixedDeviceIdentity> device = std::make_shared<FixedDeviceIdentity>();
  std::shared_ptr<FakePathMonitorFactory> network = std::make_shared<FakePathMonitorFactory>();
  std::shared_ptr<SimulatedCaptureVendor> capture = std::make_shared<SimulatedCaptureVendor>();
  std::shared_ptr<FakeCrashPrimitives> crash = std::make_shared<FakeCrashPrimitives>();
  std::shared_ptr<FakeDeviceIntegrity> integrity = std::make_shared<FakeDeviceIntegrity>();
  std::shared_ptr<FakeCameraAuthorization> camera = std::make_shared<FakeCameraAuthorization>();

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
  MemorySecureStore& fakeStore() { return *platform_.store; }
  FixedDeviceIdentity& fakeDevice() { return *platform_.device; }
  FakePathMonitorFactory& fakeNetwork() { return *platform_.network; }
  SimulatedCaptureVendor& fakeCapture() { return *platform_.capture; }
  FakeCrashPrimitives& fakeCrash() { return *platform_.crash; }
  FakeDeviceIntegrity& fakeIntegrity() { return *platform_.integrity; }
  FakeCameraAuthorization& fakeCamera() { return *platform_.camera; }

 private:
  TestPlatform platform_;
};

// PlatformTest with the task pool on the manual loop.
class ManualPoolPlatformTest : public PlatformTest {
 protected:
  ManualPoolPlatformTest() : PlatformTest(TestPlatform::Pool::manual) {}
};

}  // namespace kiv::testing
