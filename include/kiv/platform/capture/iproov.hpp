// The capture vendor's entry point, under its own names.
//
//   Session session = IProov::launch("wss://eu.example/ws", token, options,
//                                    [](const Status& status) { ... });   // on any thread
//   ...
//   session.cancel();
//
// launch() hands the capture to the installed platform's CaptureVendor. With
// no vendor installed the capture ends at once with error notSupported.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>
#include <string>

#include "kiv/platform/capture/capture_vendor.hpp"
#include "kiv/platform/capture/options.hpp"
#include "kiv/platform/capture/status.hpp"

namespace kiv {

// A handle to one capture. Copies refer to the same capture; a
// default-constructed handle refers to none.
class Session {
 public:
  Session() = default;
  explicit Session(std::shared_ptr<CaptureRun> run) : run_(std::move(run)) {}

  // Stops the capture and takes its screen down; no status follows. Safe
  // from any thread, harmless when the capture has ended.
  void cancel() const {
    if (run_) run_->cancel();
  }

 private:
  std::shared_ptr<CaptureRun> run_;
};

class IProov {
 public:
  using Callback = StatusCallback;

  // Main thread. See CaptureVendor::launch.
  static Session launch(std::string streamingURL, std::string token, Options options, Callback callback);
};

}  // namespace kiv

#pragma GCC visibility pop
