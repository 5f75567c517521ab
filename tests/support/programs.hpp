#pragma once

#include <string>

namespace kiv::testing {

// Path of a helper program built from tests/programs/<name>.cpp.
std::string programPath(const std::string& name);

}  // namespace kiv::testing
