#include "kiv/testing/simulated_capture_vendor.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kiv/platform/capture/iproov.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using Events = std::vector<std::string>;

// Shows the vendor's screen over the host and notes each request.
class RecordingDelegate final : public IProovPresentationDelegate {
 public:
  RecordingDelegate(std::weak_ptr<ViewController> host, std::function<void(std::string)> note)
      : host_(std::move(host)), note_(std::move(note)) {}
  void present(std::shared_ptr<ViewController> controller, Task completion) override {
    note_("present");
    if (auto host = host_.lock()) host->present(std::move(controller), false, std::move(completion));
  }
  void dismiss(std::shared_ptr<ViewController> controller, Task completion) override {
    note_("dismiss");
    controller->dismiss(false, std::move(completion));
  }

 private:
  std::weak_ptr<ViewController> host_;
  std::function<void(std::string)> note_;
};

// The vendor on the real task pool; statuses and the delegate's requests as
// they arrive, on any thread.
class SimulatedVendorTest : public testing::PlatformTest {
 protected:
  Session launch() {
    Options options;
    options.presentationDelegate = delegate_;
    return IProov::launch("wss://eu/ws", "token-1", options, [this](const Status& status) {
      std::string event(status.name());
      if (auto e = status.as<Status::error>()) event += " " + e->iProovError.errorDescription().value_or("-");
      note(event);
      if (onStatus_) onStatus_(status);
    });
  }
  void note(const std::string& event) {
    std::lock_guard lock(eventsMutex_);
    events_.push_back(event);
  }
  Events events() {
    std::lock_guard lock(eventsMutex_);
    return events_;
  }

  std::mutex eventsMutex_;
  Events events_;  // guarded by eventsMutex_
  std::function<void(const Status&)> onStatus_;
  std::shared_ptr<ViewController> host_ = platform()->ui->makeViewController();
  std::shared_ptr<RecordingDelegate> delegate_ =
      std::make_shared<RecordingDelegate>(host_, [this](std::string event) { note(event); });
};

class CancelFromAnotherThread : public SimulatedVendorTest, public ::testing::WithParamInterface<std::string> {};

// Whichever thread statuses are delivered on, none follows a cancel() made
// on a third thread, and the capture leaves neither its screen nor a timer.
TEST_P(CancelFromAnotherThread, StopsDeliveriesAtOnce) {
  fakeCapture().setScript(
      CaptureScript::parse(GetParam() + "connected; processing 0.25; processing 0.5; processing 0.75; success")
          .value());
  std::atomic<bool> cancelled{false};
  onStatus_ = [&](const Status& status) { EXPECT_FALSE(cancelled) << status.name() << " after cancel()"; };
  auto session = launch();
  ASSERT_TRUE(loop().runUntil([&] { return std::ranges::count(events(), "connected") > 0; }));
  std::jthread([session] {
    session.cancel();
    session.cancel();
  }).join();
  cancelled = true;
  testPlatform().pool->waitIdle();
  loop().runUntilIdle();
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
  loop().advance(5);
  testPlatform().pool->waitIdle();
  loop().runUntilIdle();
  EXPECT_EQ(events().back(), "dismiss");
  EXPECT_EQ(std::ranges::count(events(), "dismiss"), 1);
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Delivery, CancelFromAnotherThread, ::testing::Values("", "deliver vendor; "),
                         [](const auto& testInfo) { return testInfo.param.empty() ? "OnMain" : "OnTheVendorThread"; });

TEST_F(SimulatedVendorTest, WithoutAVendorTheCaptureEndsAsNotSupported) {
  testPlatform().bundle().capture = nullptr;
  testPlatform().install();
  launch();
  launch().cancel();
  loop().runUntilIdle();
  EXPECT_EQ(events(), Events{"error No capture vendor is installed"});
}

}  // namespace
}  // namespace kiv
