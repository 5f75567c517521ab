#include "flow/default_iproov_launcher.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "flow/iproov_options_builder.hpp"
#include "flow/iproov_outcome_mapping.hpp"
#include "flow/iproov_presenter.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/capture/simulated_capture_vendor.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class LauncherTest : public testing::PlatformTest {
 protected:
  SimulatedCaptureVendor& vendor() { return static_cast<SimulatedCaptureVendor&>(*platform()->capture); }

  std::shared_ptr<ViewController> host_ = platform()->ui->makeViewController();
  std::shared_ptr<KivLiteIProovPresenter> presenter_ =
      KivLiteIProovPresenter::make(KivLiteIProovPresenter::kStandardMaxHold, host_);
};

// The vendor's screen goes up over the host through the presenter, and its
// dismissal after the final status waits for the result to be delivered.
TEST_F(LauncherTest, VendorScreenStaysUpUntilTheResultIsDelivered) {
  vendor().setScript(CaptureScript::parse("connected; wait 1; failure eyes_closed").value());
  std::vector<std::string> statuses;
  auto options = buildIProovOptions(std::nullopt, nullptr, std::nullopt, std::nullopt, presenter_);
  DefaultIProovLauncher launcher;
  auto session = launcher.launch("wss://eu/ws", "session-token", options, [&](const Status& status) {
    statuses.emplace_back(status.name());
    if (auto failure = status.as<Status::failure>()) {
      EXPECT_EQ(captureFailure(failure->result).type, KivFailureType::eyesClosed);
    }
  });

  ASSERT_TRUE(loop().runUntil([&] { return statuses.size() == 1; }));
  auto screen = host_->presentedViewController();
  ASSERT_NE(screen, nullptr);
  EXPECT_EQ(screen->modalPresentationStyle(), ModalPresentationStyle::fullScreen);

  loop().advance(1.0);
  ASSERT_TRUE(loop().runUntil([&] { return statuses.size() == 2 && presenter_->hasPendingDismissal(); }));
  EXPECT_EQ(statuses, (std::vector<std::string>{"connected", "failure"}));
  EXPECT_EQ(host_->presentedViewController(), screen);

  session.cancel();  // as the flow's teardown does, before releasing the gate
  presenter_->markResultDelivered();
  EXPECT_EQ(host_->presentedViewController(), nullptr);
}

}  // namespace
}  // namespace kiv
