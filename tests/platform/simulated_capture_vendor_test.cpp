#include "platform/capture/simulated_capture_vendor.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
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

class SimulatedVendorTest : public testing::PlatformTest {
 protected:
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
      note(event + (host_->presentedViewController() ? " (shown)" : ""));
      if (onStatus_) onStatus_(status);
    });
  }

  // "<seconds> <event>", checking that it happens on the main thread.
  void note(const std::string& event) {
    EXPECT_TRUE(loop().isCurrent()) << event;
    std::ostringstream line;
    line << secondsBetween(start_, clock().now()) << " " << event;
    events_.push_back(line.str());
  }
  bool saw(const std::string& event) { return std::ranges::count(events_, event) > 0; }

  // Runs the capture until the vendor asks to take its screen down, moving
  // the clock a quarter second at a time while it pauses.
  void playToEnd() {
    auto ended = [&] { return !events_.empty() && events_.back().ends_with("dismiss"); };
    while (!ended()) {
      ASSERT_TRUE(loop().runUntil([&] { return ended() || loop().pendingDelayedCount() > 0; }));
      if (!ended()) loop().advance(0.25);
    }
  }
  // Lets everything in flight land once nothing new can start.
  void drain() {
    testPlatform().pool->waitIdle();
    loop().runUntilIdle();
  }

  TimePoint start_ = clock().now();
  Events events_;
  std::function<void(const Status&)> onStatus_;
  std::shared_ptr<ViewController> host_ = platform()->ui->makeViewController();
  std::shared_ptr<RecordingDelegate> delegate_ =
      std::make_shared<RecordingDelegate>(host_, [this](std::string event) { note(event); });
};

struct PlayCase {
  std::string name;
  std::string script;
  Events events;
};
void PrintTo(const PlayCase& c, std::ostream* os) { *os << c.name; }

class PlayTest : public SimulatedVendorTest, public ::testing::WithParamInterface<PlayCase> {};

TEST_P(PlayTest, ShowsTheScreenPlaysTheScriptInOrderAndTakesTheScreenDown) {
  play(GetParam().script);
  launch();  // the capture runs on although its handle is dropped
  playToEnd();
  EXPECT_EQ(events_, GetParam().events);
  EXPECT_EQ(host_->presentedViewController(), nullptr);
  auto launches = vendor().launches();
  ASSERT_EQ(launches.size(), 1u);
  EXPECT_EQ(launches[0].streamingURL, "wss://eu/ws");
  EXPECT_EQ(launches[0].token, "token-1");
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, PlayTest,
    ::testing::Values(PlayCase{"FailureAfterTwoSeconds",
                               "connected; wait 2; failure eyes_closed",
                               {"0 present", "0 connected (shown)", "2 failure eyes_closed (shown)", "2 dismiss"}},
                      PlayCase{
                          "PausesAddUp",
                          "wait 0.5; connecting; connected; processing 0.5; wait 1; processing 1; success",
                          {"0 present", "0.5 connecting (shown)", "0.5 connected (shown)", "0.5 processing (shown)",
                           "1.5 processing (shown)", "1.5 success (shown)", "1.5 dismiss"}},
                      PlayCase{"ErrorAtOnce", "error notSupported", {"0 present", "0 error - (shown)", "0 dismiss"}}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST_F(SimulatedVendorTest, CancelDuringAPauseEndsTheCaptureSilently) {
  play("connected; wait 2; success");
  auto session = launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  session.cancel();
  session.cancel();
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
  loop().advance(5);
  drain();
  EXPECT_EQ(events_, (Events{"0 present", "0 connected (shown)", "0 dismiss"}));
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

TEST_F(SimulatedVendorTest, CancelFromAnotherThreadStopsDeliveriesAtOnce) {
  play("connected; processing 0.25; processing 0.5; processing 0.75; success");
  bool cancelled = false;
  onStatus_ = [&](const Status& status) { EXPECT_FALSE(cancelled) << status.name() << " after cancel()"; };
  auto session = launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  std::jthread([session] { session.cancel(); }).join();
  cancelled = true;
  drain();
  EXPECT_EQ(events_.back(), "0 dismiss");
  EXPECT_EQ(std::ranges::count(events_, "0 dismiss"), 1);
}

TEST_F(SimulatedVendorTest, CancelInsideTheFinalStatusAsksForOneDismissal) {
  Session session = launch();
  onStatus_ = [&](const Status& status) {
    if (status.isFinal()) session.cancel();
  };
  playToEnd();
  drain();
  EXPECT_EQ(events_, (Events{"0 present", "0 connected (shown)", "0 success (shown)", "0 dismiss"}));
}

TEST_F(SimulatedVendorTest, WithTheDelegateGoneTheVendorTakesItsScreenDownItself) {
  play("connected; wait 1; success");
  launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  delegate_.reset();
  loop().advance(1);
  ASSERT_TRUE(loop().runUntil([&] { return saw("1 success (shown)") && !host_->presentedViewController(); }));
  EXPECT_EQ(events_, (Events{"0 present", "0 connected (shown)", "1 success (shown)"}));
}

TEST_F(SimulatedVendorTest, WithoutAVendorTheCaptureEndsAsNotSupported) {
  testPlatform().bundle().capture = nullptr;
  testPlatform().install();
  launch();
  launch().cancel();
  loop().runUntilIdle();
  EXPECT_EQ(events_, Events{"0 error No capture vendor is installed"});
}

}  // namespace
}  // namespace kiv
