// A capture vendor that lets the command-line host watch another one: it
// launches through the inner vendor and tells the host about the launch and
// about each status, on the main queue, before the SDK hears the status.
//
//   auto vendor = std::make_shared<ObservedCaptureVendor>(inner, main, onLaunch, onStatus);
//   bundle.capture = vendor;
#pragma once

#include <functional>
#include <memory>

#include "kiv/platform/capture/capture_vendor.hpp"
#include "kiv/platform/main_queue.hpp"

namespace kiv::cli {

class ObservedCaptureVendor final : public CaptureVendor {
 public:
  using LaunchObserver = std::function<void()>;
  using StatusObserver = std::function<void(const Status&)>;

  ObservedCaptureVendor(std::shared_ptr<CaptureVendor> inner, std::shared_ptr<MainQueue> main, LaunchObserver onLaunch,
                        StatusObserver onStatus)
      : inner_(std::move(inner)),
        main_(std::move(main)),
        onLaunch_(std::move(onLaunch)),
        onStatus_(std::move(onStatus)) {}

  std::shared_ptr<CaptureRun> launch(std::string streamingURL, std::string token, Options options,
                                     StatusCallback callback) override {
    auto observed = [main = main_, onStatus = onStatus_, callback = std::move(callback)](const Status& status) {
      // The vendor may call from its own thread; the host looks on the main
      // queue, and the SDK still gets the status where the vendor gave it.
      if (main->isCurrent()) {
        onStatus(status);
      } else {
        main->post([onStatus, status] { onStatus(status); });
      }
      callback(status);
    };
    auto run = inner_->launch(std::move(streamingURL), std::move(token), std::move(options), std::move(observed));
    onLaunch_();
    return run;
  }

 private:
  std::shared_ptr<CaptureVendor> inner_;
  std::shared_ptr<MainQueue> main_;
  LaunchObserver onLaunch_;
  StatusObserver onStatus_;
};

}  // namespace kiv::cli
