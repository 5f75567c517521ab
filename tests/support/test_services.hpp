// Fills the fakes of the services beyond dispatch and console.
#pragma once

#include "kiv/platform/platform.hpp"

namespace kiv::testing {

void addTestServices(Platform& bundle);

}  // namespace kiv::testing
