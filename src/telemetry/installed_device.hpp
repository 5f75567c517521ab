#pragma once

#include <memory>

#include "kiv/platform/device_identity.hpp"

namespace kiv {

// The installed platform's device identity; a blank one (empty texts, no
// screen, no locale) when the host's bundle has none.
std::shared_ptr<const DeviceIdentity> installedDevice();

}  // namespace kiv
