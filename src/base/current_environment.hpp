// The process-wide current environment: prod until first set; written by
// setup, prewarm and startSDK, read when a backend base URL is chosen.
#pragma once

#include "kiv/environment.hpp"

namespace kiv {

KivEnvironment currentEnvironment();
void setCurrentEnvironment(KivEnvironment environment);

}  // namespace kiv
