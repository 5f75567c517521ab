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

std::string number(double value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string describe(const Status& status) {
  std::string text(status.name());
  if (const auto* processing = status.as<Status::processing>()) text += " " + number(processing->progress);
  if (const auto* failure = status.as<Status::failure>()) {
    for (const auto& reason : failure->result.reasons) text += " " + reason.feedbackCode;
  }
  if (const auto* canceled = status.as<Status::canceled>()) text += " " + std::string(rawValue(canceled->canceler));
  if (const auto* error = status.as<Status::error>()) {
    text += " " + std::string(rawValue(error->iProovError.code()));
    if (auto description = error->iProovError.errorDescription()) text += " \"" + *description + "\"";
  }
  return text;
}

// Shows the vendor's screen over the host and notes each request.
class RecordingDelegate final : public IProovPresentationDelegate {
 public:
  RecordingDelegate(std::weak_ptr<ViewController> host, std::function<void(std::string)> note)
      : host_(std::move(host)), note_(std::move(note)) {}

  void present(std::shared_ptr<ViewController> controller, Task completion) override {
    EXPECT_TRUE(platform()->mainQueue->isCurrent());
    note_("present");
    if (auto host = host_.lock()) host->present(std::move(controller), false, std::move(completion));
  }
  void dismiss(std::shared_ptr<ViewController> controller, Task completion) override {
    EXPECT_TRUE(platform()->mainQueue->isCurrent());
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
      EXPECT_TRUE(loop().isCurrent());
      note(describe(status) + (host_->presentedViewController() ? " (shown)" : ""));
      if (onStatus_) onStatus_(status);
    });
  }

  void note(const std::string& event) {
    events_.push_back(number(secondsBetween(start_, clock().now())) + " " + event);
    if (event == "dismiss") dismissed_ = true;
  }

  bool saw(const std::string& event) { return std::ranges::find(events_, event) != events_.end(); }

  // Runs the capture until the vendor asks to take its screen down, moving
  // the clock a quarter second at a time while it pauses.
  void playToEnd() {
    while (!dismissed_) {
      ASSERT_TRUE(loop().runUntil([&] { return dismissed_ || loop().pendingDelayedCount() > 0; }));
      if (!dismissed_) loop().advance(0.25);
    }
  }

  // Lets everything in flight land once nothing new can start.
  void drain() {
    testPlatform().pool->waitIdle();
    loop().runUntilIdle();
  }

  TimePoint start_ = clock().now();
  std::vector<std::string> events_;
  bool dismissed_ = false;
  std::function<void(const Status&)> onStatus_;
  std::shared_ptr<ViewController> host_ = platform()->ui->makeViewController();
  std::shared_ptr<RecordingDelegate> delegate_ =
      std::make_shared<RecordingDelegate>(host_, [this](std::string event) { note(event); });
};

struct PlayCase {
  std::string name;
  std::string script;
  std::vector<std::string> events;  // "<seconds> <event>", in order
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
  EXPECT_EQ(launches[0].options.presentationDelegate.lock(), delegate_);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, PlayTest,
    ::testing::Values(
        PlayCase{"FailureAfterTwoSeconds",
                 "connected; wait 2; failure eyes_closed",
                 {"0 present", "0 connected (shown)", "2 failure eyes_closed (shown)", "2 dismiss"}},
        PlayCase{"ProgressThenSuccess",
                 "connecting; connected; processing 0.5; wait 1.5; processing 1; success",
                 {"0 present", "0 connecting (shown)", "0 connected (shown)", "0 processing 0.5 (shown)",
                  "1.5 processing 1 (shown)", "1.5 success (shown)", "1.5 dismiss"}},
        PlayCase{"ErrorAtOnce", "error notSupported", {"0 present", "0 error notSupported (shown)", "0 dismiss"}},
        PlayCase{"PausesAddUp",
                 "wait 0.5; connected; wait 0.75; canceled",
                 {"0 present", "0.5 connected (shown)", "1.25 canceled user (shown)", "1.25 dismiss"}}),
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
  EXPECT_EQ(events_, (std::vector<std::string>{"0 present", "0 connected (shown)", "0 dismiss"}));
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

TEST_F(SimulatedVendorTest, CancelFromAnotherThreadStopsDeliveriesAtOnce) {
  play("connected; processing 0.25; processing 0.5; processing 0.75; success");
  bool cancelled = false;
  onStatus_ = [&](const Status& status) { EXPECT_FALSE(cancelled) << describe(status) << " after cancel()"; };
  auto session = launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  std::jthread([session] { session.cancel(); }).join();
  cancelled = true;
  drain();
  EXPECT_EQ(events_.back(), "0 dismiss");
  EXPECT_EQ(std::ranges::count(events_, "0 dismiss"), 1);
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

TEST_F(SimulatedVendorTest, CancelBeforeTheScreenIsUpShowsNothing) {
  play("connected; success");
  launch().cancel();
  drain();
  EXPECT_TRUE(events_.empty()) << events_.front();
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

TEST_F(SimulatedVendorTest, CancelInsideTheFinalStatusAsksForOneDismissal) {
  play("connected; success");
  Session session = launch();
  onStatus_ = [&](const Status& status) {
    if (status.isFinal()) session.cancel();
  };
  playToEnd();
  drain();
  EXPECT_EQ(events_, (std::vector<std::string>{"0 present", "0 connected (shown)", "0 success (shown)", "0 dismiss"}));
}

TEST_F(SimulatedVendorTest, WithTheDelegateGoneTheVendorTakesItsScreenDownItself) {
  play("connected; wait 1; success");
  launch();
  ASSERT_TRUE(loop().runUntil([&] { return saw("0 connected (shown)"); }));
  delegate_.reset();
  loop().advance(1);
  ASSERT_TRUE(loop().runUntil([&] { return saw("1 success (shown)") && !host_->presentedViewController(); }));
  EXPECT_EQ(events_, (std::vector<std::string>{"0 present", "0 connected (shown)", "1 success (shown)"}));
}

TEST_F(SimulatedVendorTest, WithoutAVendorTheCaptureEndsAsNotSupported) {
  testPlatform().bundle().capture = nullptr;
  testPlatform().install();
  launch();
  launch().cancel();
  loop().runUntilIdle();
  EXPECT_EQ(events_, (std::vector<std::string>{"0 error notSupported \"No capture vendor is installed\""}));
}

}  // namespace
}  // namespace kiv
