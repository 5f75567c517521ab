#include "support/test_services.hpp"

#include "platform/defaults/memory_user_defaults.hpp"
#include "platform/device/fixed_device_identity.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "support/fake_crash_primitives.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  bundle.secureStore = std::make_shared<MemorySecureStore>();
  bundle.defaults = std::make_shared<MemoryUserDefaults>();
  bundle.device = std::make_shared<FixedDeviceIdentity>();
  bundle.crash = std::make_shared<FakeCrashPrimitives>();
}

}  // namespace kiv::testing
