#include "support/test_services.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  (void)bundle;
}

}  // namespace kiv::testing
