#include "platform/linux_services.hpp"

namespace kiv {

// Each service adds its Linux implementation here, one line each.
void addLinuxServices(Platform& bundle) {
  (void)bundle;
}

}  // namespace kiv
