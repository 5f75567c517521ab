// The backend addresses every request is built from: the root per
// environment (kiv/backend.hpp, where a host may override it) and the bases
// derived from it.
#pragma once

#include <string>

#include "kiv/backend.hpp"

namespace kiv {

// Base of the analytics endpoints of `environment`: the root + "bff/". The
// endpoint's name ("track-analytics", ...) is appended to it.
std::string analyticsBaseURL(KivEnvironment environment);

}  // namespace kiv
