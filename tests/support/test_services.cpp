#include "support/test_services.hpp"

#include "platform/capture/simulated_capture_vendor.hpp"
#include "platform/http/curl_http_session.hpp"
#include "platform/ui/fake_font_lookup.hpp"
#include "platform/ui/headless_view_toolkit.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  bundle.ui =
      std::make_shared<HeadlessViewToolkit>(std::make_shared<FakeFontLookup>(FakeFontLookup::Families{"Avenir Next"}));
  bundle.capture = std::make_shared<SimulatedCaptureVendor>();
  bundle.http = std::make_shared<CurlHttpSessionFactory>();  // wire tests talk to a RecordingHttpServer
}

}  // namespace kiv::testing
