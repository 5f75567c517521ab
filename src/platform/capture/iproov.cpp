#include "kiv/platform/capture/iproov.hpp"

#include <atomic>

#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

constexpr std::string_view kNoVendorDescription = "No capture vendor is installed";

// Without a vendor the capture cannot start: it ends the way a device the
// vendor does not support ends it, unless cancelled first.
class UnavailableRun final : public CaptureRun {
 public:
  void cancel() override { cancelled_->store(true); }

  void start(StatusCallback callback) {
    platform()->mainQueue->post([cancelled = cancelled_, callback = std::move(callback)] {
      if (cancelled->load()) return;
      callback(Status::error{IProovError(IProovError::Code::notSupported, std::string(kNoVendorDescription))});
    });
  }

 private:
  std::shared_ptr<std::atomic<bool>> cancelled_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace

Session IProov::launch(std::string streamingURL, std::string token, Options options, Callback callback) {
  auto vendor = platform()->capture;
  if (!vendor) {
    auto run = std::make_shared<UnavailableRun>();
    run->start(std::move(callback));
    return Session(std::move(run));
  }
  return Session(vendor->launch(std::move(streamingURL), std::move(token), std::move(options), std::move(callback)));
}

}  // namespace kiv
