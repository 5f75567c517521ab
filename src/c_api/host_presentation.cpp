#include <memory>
#include <utility>

#include "c_api/host_services.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/ui/headless_view.hpp"
#include "platform/ui/headless_view_controller.hpp"

namespace kiv::c_api {
namespace {

// The host's view: the SDK's loading overlay becomes its subview, and the
// host hears when the overlay shows or hides.
class HostRootView final : public HeadlessViewBase<View> {
 public:
  HostRootView(const kiv_presentation& functions, void* hostView) : functions_(functions), hostView_(hostView) {}

  void subviewsChanged() override {
    bool covered = false;
    for (const auto& subview : subviews()) covered = covered || !subview->isHidden();
    if (covered == covered_) return;
    covered_ = covered;
    if (auto call = covered ? functions_.show_loading : functions_.hide_loading) call(functions_.user_data, hostView_);
  }

 private:
  const kiv_presentation functions_;
  void* const hostView_;
  bool covered_ = false;
};

class HostRootController final : public HeadlessViewController {
 public:
  HostRootController(const kiv_presentation& functions, void* hostView)
      : HeadlessViewController(std::make_shared<HostRootView>(functions, hostView)),
        functions_(functions),
        hostView_(hostView) {}

  void captureScreenShown(kiv_capture capture) const {
    if (functions_.present_capture_screen) functions_.present_capture_screen(functions_.user_data, hostView_, capture);
  }
  void captureScreenGone(kiv_capture capture) const {
    if (functions_.dismiss_capture_screen) functions_.dismiss_capture_screen(functions_.user_data, hostView_, capture);
  }

 private:
  const kiv_presentation functions_;
  void* const hostView_;
};

// Stands for the host vendor's screen in the controller graph, so that the
// presenter holds its dismissal back as it would a phone vendor's screen.
class HostCaptureScreen final : public HeadlessViewController {
 public:
  explicit HostCaptureScreen(kiv_capture capture)
      : HeadlessViewController(platform()->ui->makeView(Rect{})), capture_(capture) {}

 protected:
  void didPresent(HeadlessViewController& presenter) override {
    auto* root = dynamic_cast<HostRootController*>(&presenter);
    if (!root) return;  // over the SDK's own screen: nothing of the host's to show
    root_ = std::static_pointer_cast<HostRootController>(root->shared_from_this());
    root->captureScreenShown(capture_);
  }
  void didDismiss() override {
    if (auto root = std::exchange(root_, {}).lock()) root->captureScreenGone(capture_);
  }

 private:
  const kiv_capture capture_;
  std::weak_ptr<HostRootController> root_;
};

}  // namespace

std::shared_ptr<ViewController> makeHostViewController(const kiv_presentation& functions, void* hostView) {
  return std::make_shared<HostRootController>(functions, hostView);
}

std::shared_ptr<ViewController> makeHostCaptureScreen(kiv_capture capture) {
  return std::make_shared<HostCaptureScreen>(capture);
}

}  // namespace kiv::c_api
