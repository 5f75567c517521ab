#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "flow/iproov_presenter.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/ui/headless_view_controller.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class PresenterTest : public testing::PlatformTest {
 protected:
  ViewToolkit& ui() { return *platform()->ui; }
  double now() { return secondsBetween(start_, clock().now()); }

  std::shared_ptr<ViewController> host_ = ui().makeViewController();
  std::shared_ptr<ViewController> vendor_ = ui().makeViewController();
  std::shared_ptr<KivLiteIProovPresenter> presenter_ =
      KivLiteIProovPresenter::make(KivLiteIProovPresenter::kStandardMaxHold, host_);
  TimePoint start_ = clock().now();
};

// --- The gate: every order in which its triggers can arrive.

enum class Step { dismiss, dismissFromThread, deliver, deliverFromThread, releasePresenter };

struct GateCase {
  std::string name;
  std::multimap<double, Step> timeline;  // seconds after the start -> what happens (in order)
  std::vector<double> completionsAt;     // when the vendor's dismissal completions run
};
void PrintTo(const GateCase& c, std::ostream* os) { *os << c.name; }

class GateTest : public PresenterTest, public ::testing::WithParamInterface<GateCase> {};

TEST_P(GateTest, DismissalRunsOnceAtTheFirstTrigger) {
  host_->present(vendor_, false, {});
  loop().runUntilIdle();
  std::vector<double> completions;
  auto dismissal = [&] {
    return [&] {
      EXPECT_EQ(host_->presentedViewController(), nullptr) << "completion before the screen left, at " << now();
      completions.push_back(now());
    };
  };
  auto onThread = [](auto work) { std::jthread(std::move(work)).join(); };

  double at = 0;
  for (const auto& [time, step] : GetParam().timeline) {
    if (time > at) loop().advance(time - at), at = time;
    switch (step) {
      case Step::dismiss:
        presenter_->dismiss(vendor_, dismissal());
        break;
      case Step::dismissFromThread:
        onThread([p = presenter_, v = vendor_, d = dismissal()] { p->dismiss(v, d); });
        break;
      case Step::deliver:
        presenter_->markResultDelivered();
        break;
      case Step::deliverFromThread:
        onThread([p = presenter_] { p->markResultDelivered(); });
        break;
      case Step::releasePresenter:
        presenter_.reset();
        break;
    }
  }
  loop().runUntilIdle();
  loop().advance(10.0);
  EXPECT_EQ(completions, GetParam().completionsAt);
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    TriggerOrders, GateTest,
    ::testing::Values(
        GateCase{"DeliveredOneSecondAfterTheRequest", {{0.0, Step::dismiss}, {1.0, Step::deliver}}, {1.0}},
        GateCase{"NeverDelivered", {{0.0, Step::dismiss}}, {3.0}},
        GateCase{"DeliveredBeforeTheRequest", {{0.0, Step::deliver}, {0.5, Step::dismiss}}, {0.5}},
        GateCase{"PresenterReleasedWhileHolding", {{0.0, Step::dismiss}, {1.0, Step::releasePresenter}}, {1.0}},
        GateCase{"DeliveredTwice", {{0.0, Step::dismiss}, {1.0, Step::deliver}, {2.0, Step::deliver}}, {1.0}},
        GateCase{"RequestAndDeliveryFromOtherThreads",
                 {{0.0, Step::dismissFromThread}, {1.5, Step::deliverFromThread}},
                 {1.5}},
        GateCase{"PresenterReleasedBeforeTheRequestReachesTheMainThread",
                 {{0.0, Step::dismissFromThread}, {0.0, Step::releasePresenter}},
                 {0.0}},
        // The second request replaces the first; the first still ends with its own timer.
        GateCase{"SecondRequestWhileHolding",
                 {{0.0, Step::dismiss}, {1.0, Step::dismiss}, {2.0, Step::deliver}},
                 {2.0, 3.0}},
        GateCase{"DeliveryAfterTheHoldExpired", {{0.0, Step::dismiss}, {4.0, Step::deliver}}, {3.0}}),
    [](const auto& testInfo) { return testInfo.param.name; });

// --- Presenting.

TEST_F(PresenterTest, PresentsFullScreenOverTheTopmostStayingController) {
  auto middle = ui().makeViewController();
  auto top = ui().makeViewController();
  host_->present(middle, false, {});
  middle->present(top, false, {});
  EXPECT_EQ(presenter_->topmostPresenter(), top);

  // A controller on its way out does not count: the one below is the top again.
  top->dismiss(true, {});
  EXPECT_TRUE(top->isBeingDismissed());
  EXPECT_EQ(presenter_->topmostPresenter(), middle);

  bool presented = false;
  presenter_->present(vendor_, [&] { presented = true; });
  EXPECT_EQ(middle->presentedViewController(), vendor_);
  EXPECT_EQ(vendor_->presentingViewController(), middle);
  EXPECT_EQ(vendor_->modalPresentationStyle(), ModalPresentationStyle::fullScreen);
  EXPECT_FALSE(presented);  // the toolkit completes later, from the main queue
  loop().runUntilIdle();
  EXPECT_TRUE(presented);
}

TEST_F(PresenterTest, WithoutAHostOnlyTheCompletionRuns) {
  host_.reset();
  bool completed = false;
  presenter_->present(vendor_, [&] { completed = true; });
  EXPECT_TRUE(completed);
  EXPECT_EQ(vendor_->presentingViewController(), nullptr);
  EXPECT_EQ(presenter_->topmostPresenter(), nullptr);
}

TEST_F(PresenterTest, AScreenAlreadyGoneIsNotHeld) {
  int completions = 0;
  presenter_->dismiss(vendor_, [&] { ++completions; });  // never presented
  EXPECT_EQ(completions, 1);
  EXPECT_FALSE(presenter_->hasPendingDismissal());
  EXPECT_EQ(loop().pendingDelayedCount(), 0u);
}

}  // namespace
}  // namespace kiv
