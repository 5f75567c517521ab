// Where the SDK finds the maker's backend.
//
// Each environment has a root URL, ending in "/", under which the session,
// transactions and analytics endpoints live. The SDK is built with one root
// per environment; a host may point an environment elsewhere, for example at
// a sandbox backend on its own machine:
//
//   kiv::setBackendRootURL(kiv::KivEnvironment::dev, "http://127.0.0.1:8080");
//
// Requests built after the call use the new root. Safe from any thread.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <string>
#include <string_view>

#include "kiv/environment.hpp"

namespace kiv {

// Replaces the root of `environment` with `rootURL`, an absolute http or
// https URL without query or fragment; a missing final "/" is added. Returns
// false and changes nothing for any other text.
[[nodiscard]] bool setBackendRootURL(KivEnvironment environment, std::string_view rootURL);

// Returns `environment` to the root the SDK was built with.
void resetBackendRootURL(KivEnvironment environment);

// The root currently in use for `environment`.
std::string backendRootURL(KivEnvironment environment);

}  // namespace kiv

#pragma GCC visibility pop
