// A capture vendor that plays a script instead of running a camera: the
// vendor of the command-line host (which scripts it) and of tests, a host's
// own among them. Part of kivfll_testing, never of the shipped library.
//
// Each launch plays the script set at that moment (see capture_script.hpp),
// the way the vendor's framework would run one capture:
// 1. On the main queue it makes its own view controller and presents it
//    through the options' presentation delegate.
// 2. Each status is produced on the vendor's own serial queue and handed to
//    the callback on the main queue, or on that queue's thread after
//    `deliver vendor`; the next step follows its delivery. A pause is a
//    delayed task on the main queue, so it runs on the main queue's clock
//    (a test's fake clock moves it).
// 3. After the final status was handled it asks the delegate to dismiss its
//    controller (or dismisses it itself when the delegate is gone), unless
//    the script dismissed earlier or said nodismiss.
// cancel() drops every status not yet delivered (except forced ones) and
// every pause, and takes the screen down the same way if it is up. Once it
// returns the callback is not running on another thread.
//
// Scripts can also make it misbehave as real vendors do: statuses inside
// launch(), dismissal before the final status, statuses after the final
// status or after cancel().
//
//   auto vendor = std::make_shared<SimulatedCaptureVendor>();
//   vendor->setScript(CaptureScript::parse("connected; wait 2; failure eyes_closed").value());
//   bundle.capture = vendor;
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kiv/platform/capture/capture_vendor.hpp"
#include "kiv/testing/capture_script.hpp"

namespace kiv {

class SimulatedCaptureVendor final : public CaptureVendor {
 public:
  // What a capture plays unless told otherwise.
  static constexpr std::string_view kDefaultScript = "connected; success";
  // The label of the vendor's own queue.
  static constexpr std::string_view kQueueLabel = "kiv.capture.simulated";

  SimulatedCaptureVendor();
  explicit SimulatedCaptureVendor(CaptureScript script);

  // For the launches that follow. Safe from any thread.
  void setScript(CaptureScript script);

  // What one launch was given.
  struct Launch {
    std::string streamingURL;
    std::string token;
    Options options;
  };
  // Every launch since keepLaunches(true), oldest first; none otherwise, so
  // that a long-lived host keeps nothing of a finished capture (its supplier
  // token least of all). For tests. Safe from any thread.
  void keepLaunches(bool keep);
  std::vector<Launch> launches() const;

  std::shared_ptr<CaptureRun> launch(std::string streamingURL, std::string token, Options options,
                                     StatusCallback callback) override;

 private:
  mutable std::mutex mutex_;
  CaptureScript script_;
  bool keepLaunches_ = false;
  std::vector<Launch> launches_;
};

}  // namespace kiv
