// Fills the Linux implementations of the services beyond dispatch and console.
#pragma once

#include "kiv/platform/platform.hpp"

namespace kiv {

void addLinuxServices(Platform& bundle);

}  // namespace kiv
