#include "platform/linux_services.hpp"

#include "kiv/platform/crash.hpp"
#include "kiv/platform/device_identity.hpp"
#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/user_defaults.hpp"

namespace kiv {

// Each service adds its Linux implementation here, one line each.
void addLinuxServices(Platform& bundle) {
  bundle.secureStore = makeLinuxSecureStore();
  bundle.defaults = makeLinuxUserDefaults();
  bundle.device = makeLinuxDeviceIdentity();
  bundle.crash = makeLinuxCrashPrimitives();
}

}  // namespace kiv
