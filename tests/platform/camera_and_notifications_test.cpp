#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>
#include <vector>

#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/notification_center.hpp"
#include "support/child_process.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class CameraAuthorizationTest : public testing::PlatformTest {
 protected:
  // Whether a request was granted, and whether the answer came off the
  // calling thread.
  static std::pair<bool, bool> request(CameraAuthorization& camera) {
    std::promise<std::pair<bool, bool>> answered;
    const auto caller = std::this_thread::get_id();
    camera.requestAccess([&](bool granted) { answered.set_value({granted, std::this_thread::get_id() != caller}); });
    return answered.get_future().get();
  }

  testing::TemporaryDirectory scratch;
  const std::filesystem::path& devices = scratch.path();
};

TEST_F(CameraAuthorizationTest, LinuxStatusFollowsTheVideoDevices) {
  auto camera = makeLinuxCameraAuthorization(devices);
  std::ofstream(devices / "audio0") << "";
  EXPECT_EQ(camera->status(), CameraAuthorizationStatus::restricted);  // no video device

  // A device that cannot be opened (a dangling link fails even for root).
  std::filesystem::create_symlink(devices / "gone", devices / "video0");
  EXPECT_EQ(camera->status(), CameraAuthorizationStatus::denied);
  EXPECT_EQ(request(*camera), std::make_pair(false, true));

  std::ofstream(devices / "video1") << "";
  EXPECT_EQ(camera->status(), CameraAuthorizationStatus::authorized);
  EXPECT_EQ(request(*camera), std::make_pair(true, true));
}

class NotificationCenterTest : public testing::PlatformTest {
 protected:
  std::shared_ptr<NotificationCenter> center = makeMainQueueNotificationCenter();
  std::vector<std::string> calls;
};

TEST_F(NotificationCenterTest, ObserversOfTheNameRunOnTheMainQueueUntilRemoved) {
  const auto first = center->addObserver("background", [&] { calls.push_back("first"); });
  center->addObserver("foreground", [&] { calls.push_back("other name"); });
  const auto second = center->addObserver("background", [&] { calls.push_back("second"); });
  EXPECT_NE(first, second);

  std::thread([&] { center->post("background"); }).join();
  EXPECT_TRUE(calls.empty());  // nothing inline, nothing off the main queue
  loop().runUntilIdle();
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "second"}));

  // A removal before the main queue gets to a delivery drops it.
  center->post("background");
  center->removeObserver(second);
  center->removeObserver(12345);  // unknown: harmless
  loop().runUntilIdle();
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "second", "first"}));
}

}  // namespace
}  // namespace kiv
