#include "support/programs.hpp"

#include <cstdlib>

namespace kiv::testing {

std::string programPath(const std::string& name) {
  const char* dir = std::getenv("KIV_TEST_BINARY_DIR");  // set by CTest for every test
  return std::string(dir ? dir : ".") + "/tests/programs/kivfll_" + name;
}

}  // namespace kiv::testing
