// The seam between the session flow and the capture vendor: the flow
// launches through it, so a test can put a launcher of its own in the
// vendor's place.
//
//   std::unique_ptr<IProovLaunching> launcher = std::make_unique<DefaultIProovLauncher>();
//   Session session = launcher->launch(url, token, options, onStatus);
#pragma once

#include <string>

#include "kiv/platform/capture/iproov.hpp"

namespace kiv {

class IProovLaunching {
 public:
  virtual ~IProovLaunching() = default;
  // Starts a capture and returns its handle; `callback` hears each status.
  // Main thread.
  virtual Session launch(std::string streamingURL, std::string token, Options options, IProov::Callback callback) = 0;
};

}  // namespace kiv
