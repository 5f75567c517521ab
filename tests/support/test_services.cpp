#include "support/test_services.hpp"

#include "kiv/platform/capture/simulated_capture_vendor.hpp"
#include "kiv/platform/notification_center.hpp"
#include "platform/camera/fake_camera_authorization.hpp"
#include "platform/crash/fake_crash_primitives.hpp"
#include "platform/defaults/memory_user_defaults.hpp"
#include "platform/device/fixed_device_identity.hpp"
#include "platform/http/curl_http_session.hpp"
#include "platform/integrity/fake_device_integrity.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "platform/ui/fake_font_lookup.hpp"
#include "platform/ui/headless_view_toolkit.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  bundle.secureStore = std::make_shared<MemorySecureStore>();
  bundle.defaults = std::make_shared<MemoryUserDefaults>();
  bundle.device = std::make_shared<FixedDeviceIdentity>();
  bundle.http = std::make_shared<CurlHttpSessionFactory>();         // wire tests talk to a RecordingHttpServer
  bundle.pathMonitor = std::make_shared<FakePathMonitorFactory>();  // offline until a test flips it
  bundle.ui =
      std::make_shared<HeadlessViewToolkit>(std::make_shared<FakeFontLookup>(FakeFontLookup::Families{"Avenir Next"}));
  bundle.capture = std::make_shared<SimulatedCaptureVendor>();
  bundle.crash = std::make_shared<FakeCrashPrimitives>();
  bundle.integrity = std::make_shared<FakeDeviceIntegrity>();   // clean until a test says otherwise
  bundle.camera = std::make_shared<FakeCameraAuthorization>();  // authorized until a test says otherwise
  bundle.notifications = makeMainQueueNotificationCenter();
}

}  // namespace kiv::testing
