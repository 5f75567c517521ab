// The runtime behind IProov::launch: the platform service Platform::capture.
//
// On a phone a host installs one that drives the vendor's real framework
// (from C, through the vendor hooks of kiv/face_liveness_lite.h); the Linux
// bundle has none, and tests install the simulated vendor that plays a
// script (kiv/testing/simulated_capture_vendor.hpp).
//
// What every runtime promises, as the vendor's framework does:
// - launch() returns at once; the capture runs on the runtime's own threads.
// - The vendor's screen is shown through the options' presentation delegate
//   (present from the main thread) and taken down through the same delegate
//   when the capture ends or is cancelled.
// - Statuses reach the callback in order, one at a time, on a thread of the
//   runtime's choosing: the main thread or one of its own (a real vendor
//   calls back from its capture threads). A caller that needs the main
//   thread moves them there. A status may even arrive inside launch(),
//   before it returns.
// - After a final status (success, failure, canceled, error) no other
//   should follow, and after cancel() the callback should not be called
//   again; a careful caller still ignores what comes late.
#pragma once

#include <memory>
#include <string>

#include "kiv/platform/capture/options.hpp"
#include "kiv/platform/capture/status.hpp"

namespace kiv {

// One running capture.
class CaptureRun {
 public:
  virtual ~CaptureRun() = default;
  // Stops the capture and takes its screen down. Safe from any thread;
  // harmless after the capture ended or a second time.
  virtual void cancel() = 0;
};

class CaptureVendor {
 public:
  virtual ~CaptureVendor() = default;
  // Starts a capture against `streamingURL` (an absolute URL, normally wss)
  // with the session `token`. The run stays alive until it has ended, even
  // when the caller drops it. Main thread.
  virtual std::shared_ptr<CaptureRun> launch(std::string streamingURL, std::string token, Options options,
                                             StatusCallback callback) = 0;
};

}  // namespace kiv
