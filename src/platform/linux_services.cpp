#include "platform/linux_services.hpp"

#include "platform/crash/linux_crash_primitives.hpp"

namespace kiv {

// Each service adds its Linux implementation here, one line each.
void addLinuxServices(Platform& bundle) {
  (void)bundle;
  bundle.crash = std::make_shared<LinuxCrashPrimitives>();
}

}  // namespace kiv
