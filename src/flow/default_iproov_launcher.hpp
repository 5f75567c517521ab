// The launcher every run uses: straight to the vendor's IProov::launch.
#pragma once

#include "flow/iproov_launching.hpp"

namespace kiv {

class DefaultIProovLauncher final : public IProovLaunching {
 public:
  Session launch(std::string streamingURL, std::string token, Options options, IProov::Callback callback) override;
};

}  // namespace kiv
