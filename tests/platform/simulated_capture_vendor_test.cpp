#include "kiv/testing/simulated_capture_vendor.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
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

class VendorFixture : public testing::PlatformTest {
 protected:
  explicit VendorFixture(testing::TestPlatform::Pool pool) : PlatformTest(pool) {}

  SimulatedCaptureVendor& vendor() { return static_cast<SimulatedCaptureVendor&>(*platform()->capture); }
  void play(std::string_view script) { vendor().setScript(CaptureScript::parse(script).value()); }

  Session launch() {
    Options options;
    options.presentationDelegate = delegate_;
    return IProov::launch("wss://eu/ws", "token-1", options, [this](const Status& status) {
      std::string event(status.name());
      if (auto f = status.as<Status::failure>(); f && !f->result.reasons.empty()) {
        event += " " + f->result.reasons[0].feedbackCode;
      }
      if (auto e = status.as<Status::error>()) event += " " + e->iProovError.errorDescription().value_or("-");
      note(event);
      if (onStatus_) onStatus_(status);
    });
  }

  // "<seconds> <event>", then " (shown)" while the vendor's screen is up,
  // or " (off main)" away from the main thread (where the screen is not
  // ours to look at).
  void note(const std::string& event) {
    std::ostringstream line;
    line << secondsBetween(start_, clock().now()) << " " << event;
    if (!loop().isCurrent()) {
      line << " (off main)";
    } else if (event != "present" && event != "dismiss" && host_->presentedViewController()) {
      line << " (shown)";
    }
    std::lock_guard lock(eventsMutex_);
    events_.push_back(line.str());
  }
  Events events() {
    std::lock_guard lock(eventsMutex_);
    return events_;
  }
  bool saw(const std::string& event) { return std::ranges::count(events(), event) > 0; }

  // Lets everything in flight land once nothing new can start.
  void drain() {
    testPlatform().pool->waitIdle();
    loop().runUntilIdle();
  }

  TimePoint start_ = clock().now();
  std::mutex eventsMutex_;
  Events events_;  // guarded by eventsMutex_
  std::function<void(const Status&)> onStatus_;
  std::shared_ptr<ViewController> host_ = platform()->ui->makeViewController();
  std::shared_ptr<RecordingDelegate> delegate_ =
      std::make_shared<RecordingDelegate>(host_, [this](std::string event) { note(event); });
};

class SimulatedVendorTest : public VendorFixture {
 protected:
  SimulatedVendorTest() : VendorFixture(testing::TestPlatform::Pool::threads) {}
};

class CancelFromAnotherThread : public SimulatedVendorTest, public ::testing::WithParamInterface<std::string> {};

// Whichever thread statuses are delivered on, none follows a cancel() made
// on a third thread, and the capture leaves neither its screen nor a timer.
TEST_P(CancelFromAnotherThread, StopsDeliveriesAtOnce) {
  play(GetParam() + "connected; processing 0.25; processing 0.5; processing 0.75; success");
  std::atomic<bool> cancelled{false};
  onStatus_ = [&](const Status& status) { EXPECT_FALSE(cancelled) << status.name() << " after cancel()"; };
  auto session = launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)") || saw("0 connected (off main)"); }));
  std::jthread([session] {
    session.cancel();
    session.cancel();
  }).join();
  cancelled = true;
  drain();
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
  loop().advance(5);
  drain();
  EXPECT_EQ(events().back(), "0 dismiss");
  EXPECT_EQ(std::ranges::count(events(), "0 dismiss"), 1);
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Delivery, CancelFromAnotherThread, ::testing::Values("", "deliver vendor; "),
                         [](const auto& testInfo) { return testInfo.param.empty() ? "OnMain" : "OnTheVendorThread"; });

TEST_F(SimulatedVendorTest, WithTheDelegateGoneTheVendorTakesItsScreenDownItself) {
  play("connected; wait 1; success");
  launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  delegate_.reset();
  loop().advance(1);
  ASSERT_TRUE(loop().runUntil([&] { return saw("1 success (shown)") && !host_->presentedViewController(); }));
  EXPECT_EQ(events(), (Events{"0 present", "0 connected (shown)", "1 success (shown)"}));
}

TEST_F(SimulatedVendorTest, WithoutAVendorTheCaptureEndsAsNotSupported) {
  testPlatform().bundle().capture = nullptr;
  testPlatform().install();
  launch();
  launch().cancel();
  loop().runUntilIdle();
  EXPECT_EQ(events(), Events{"0 error No capture vendor is installed"});
}

// On the manual pool each script plays one way only. Besides plain scripts,
// vendors that do what a real one may: call back on their own thread, inside
// launch(), after the final status or after cancel(), and dismiss early or
// never.
class ManualVendorTest : public VendorFixture {
 protected:
  ManualVendorTest() : VendorFixture(testing::TestPlatform::Pool::manual) {}
};

TEST_F(ManualVendorTest, CancelInsideTheFinalStatusAsksForOneDismissal) {
  Session session = launch();
  onStatus_ = [&](const Status& status) {
    if (status.isFinal()) session.cancel();
  };
  loop().advance(10);
  EXPECT_EQ(events(), (Events{"0 present", "0 connected (shown)", "0 success (shown)", "0 dismiss"}));
}

TEST_F(ManualVendorTest, AFinishedCaptureLeavesNothingBehind) {
  SimulatedCaptureVendor vendor(CaptureScript::parse("connected; wait 1; success").value());
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  vendor.launch("wss://eu/ws", "token-1", {}, [held = std::move(held)](const Status&) {});
  loop().advance(2);
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(vendor.launches().empty());
}

struct ScriptCase {
  std::string name;
  std::string script;
  std::optional<double> cancelAt;
  Events events;
};
void PrintTo(const ScriptCase& c, std::ostream* os) { *os << c.name; }

class ScriptTest : public ManualVendorTest, public ::testing::WithParamInterface<ScriptCase> {};

TEST_P(ScriptTest, PlaysWhatTheScriptSays) {
  play(GetParam().script);
  Session session = launch();
  note("launch returned");
  const double cancelAt = GetParam().cancelAt.value_or(0);
  if (GetParam().cancelAt) {
    loop().advance(cancelAt);
    session.cancel();
  }
  session = {};  // the capture runs on without its handle
  loop().advance(10 - cancelAt);
  note("end");
  EXPECT_EQ(events(), GetParam().events);
  const auto launches = vendor().launches();
  ASSERT_EQ(launches.size(), 1u);
  EXPECT_EQ(launches[0].streamingURL, "wss://eu/ws");
  EXPECT_EQ(launches[0].token, "token-1");
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, ScriptTest,
    ::testing::Values(
        ScriptCase{"FailureAfterTwoSeconds",
                   "connected; wait 2; failure eyes_closed",
                   std::nullopt,
                   {"0 launch returned", "0 present", "0 connected (shown)", "2 failure eyes_closed (shown)",
                    "2 dismiss", "10 end"}},
        ScriptCase{
            "PausesAddUp",
            "wait 0.5; connecting; connected; processing 0.5; wait 1; processing 1; success",
            std::nullopt,
            {"0 launch returned", "0 present", "0.5 connecting (shown)", "0.5 connected (shown)",
             "0.5 processing (shown)", "1.5 processing (shown)", "1.5 success (shown)", "1.5 dismiss", "10 end"}},
        ScriptCase{"StatusesOnTheVendorThread",
                   "deliver vendor; connected; wait 1; failure eyes_closed",
                   std::nullopt,
                   {"0 launch returned", "0 present", "0 connected (off main)", "1 failure eyes_closed (off main)",
                    "1 dismiss", "10 end"}},
        ScriptCase{"DismissalBeforeALateFinalStatus",
                   "connected; dismiss; wait 4; success",
                   std::nullopt,
                   {"0 launch returned", "0 present", "0 connected (shown)", "0 dismiss", "4 success", "10 end"}},
        ScriptCase{"NeverDismisses",
                   "connected; failure; nodismiss",
                   std::nullopt,
                   {"0 launch returned", "0 present", "0 connected (shown)", "0 failure (shown)", "10 end (shown)"}},
        ScriptCase{
            "ALateErrorAfterSuccess",
            "success; then wait 1; then error network \"late\"",
            std::nullopt,
            {"0 launch returned", "0 present", "0 success (shown)", "1 error late (shown)", "1 dismiss", "10 end"}},
        ScriptCase{"AStatusInsideLaunch",
                   "sync connecting; connected; success",
                   std::nullopt,
                   {"0 connecting", "0 launch returned", "0 present", "0 connected (shown)", "0 success (shown)",
                    "0 dismiss", "10 end"}},
        ScriptCase{"AFinalStatusInsideLaunchShowsNothing",
                   "sync error captureAlreadyActive",
                   std::nullopt,
                   {"0 error -", "0 launch returned", "10 end"}},
        ScriptCase{"AForcedStatusAfterCancel",
                   "connected; wait 5; processing 0.5; force canceled integration; then success",
                   1.0,
                   {"0 launch returned", "0 present", "0 connected (shown)", "1 dismiss", "1 canceled", "10 end"}}),
    [](const auto& testInfo) { return testInfo.param.name; });

}  // namespace
}  // namespace kiv
