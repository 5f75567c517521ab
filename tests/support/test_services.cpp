#include "support/test_services.hpp"

#include "platform/http/curl_http_session.hpp"

namespace kiv::testing {

// Each service adds its deterministic fake here, one line each.
void addTestServices(Platform& bundle) {
  (void)bundle;
  bundle.http = std::make_shared<CurlHttpSessionFactory>();  // wire tests talk to a RecordingHttpServer
}

}  // namespace kiv::testing
