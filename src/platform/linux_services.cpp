#include "platform/linux_services.hpp"

#include "platform/http/curl_http_session.hpp"

namespace kiv {

// Each service adds its Linux implementation here, one line each.
void addLinuxServices(Platform& bundle) {
  (void)bundle;
  bundle.http = std::make_shared<CurlHttpSessionFactory>();
}

}  // namespace kiv
