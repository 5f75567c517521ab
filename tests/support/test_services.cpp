#include "support/test_services.hpp"

#include "support/fake_crash_primitives.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  (void)bundle;
  bundle.crash = std::make_shared<FakeCrashPrimitives>();
}

}  // namespace kiv::testing
