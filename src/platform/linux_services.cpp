#include "platform/linux_services.hpp"

#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/crash.hpp"
#include "kiv/platform/device_identity.hpp"
#include "kiv/platform/notification_center.hpp"
#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "platform/http/curl_http_session.hpp"
#include "platform/integrity/linux_device_integrity.hpp"
#include "platform/path_monitor/netlink_path_monitor.hpp"
#include "platform/ui/fontconfig_font_lookup.hpp"
#include "platform/ui/headless_view_toolkit.hpp"

namespace kiv {

// Each service adds its Linux implementation here, one line each. There is
// no capture vendor on Linux: a host lends one (or a test installs the
// simulated one); without it a capture ends in error notSupported.
void addLinuxServices(Platform& bundle) {
  bundle.secureStore = makeLinuxSecureStore();
  bundle.defaults = makeLinuxUserDefaults();
  bundle.device = makeLinuxDeviceIdentity();
  bundle.http = std::make_shared<CurlHttpSessionFactory>();
  bundle.pathMonitor = std::make_shared<NetlinkPathMonitorFactory>();
  bundle.ui = std::make_shared<HeadlessViewToolkit>(std::make_shared<FontconfigFontLookup>());
  bundle.crash = makeLinuxCrashPrimitives();
  bundle.integrity = std::make_shared<LinuxDeviceIntegrity>();
  bundle.camera = makeLinuxCameraAuthorization();
  bundle.notifications = makeMainQueueNotificationCenter();
}

}  // namespace kiv
