#include "flow/default_iproov_launcher.hpp"

namespace kiv {

Session DefaultIProovLauncher::launch(std::string streamingURL, std::string token, Options options,
                                      IProov::Callback callback) {
  return IProov::launch(std::move(streamingURL), std::move(token), std::move(options), std::move(callback));
}

}  // namespace kiv
