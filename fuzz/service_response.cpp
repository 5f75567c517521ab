// Arbitrary backend answers through the service's response handling, for
// both request kinds: any status, any body bytes, with or without a response,
// a body, a transport error. Each must complete exactly once, and a session
// that decodes must survive being cached (encoded and decoded again).
//
// Input: byte 0 flags, bytes 1-2 the status code (big-endian, as a signed
// 16-bit number so negative and oversized statuses occur), the rest the body.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "kiv/platform/platform.hpp"
#include "platform/console/capturing_console.hpp"
#include "platform/dispatch/fake_clock.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "base/timer.hpp"
#include "service/kiv_service.hpp"

namespace {

const std::shared_ptr<kiv::KivService>& service() {
  // Only what handleResponse touches: no session is needed since nothing is
  // sent, and no analytics client, so no task is posted.
  static const auto instance = [] {
    kiv::Platform bundle;
    bundle.clock = std::make_shared<kiv::FakeClock>();
    bundle.taskPool = std::make_shared<kiv::ThreadTaskPool>(1);
    bundle.console = std::make_shared<kiv::CapturingConsole>();
    kiv::installPlatform(std::move(bundle));
    return kiv::KivService::create(nullptr, "fuzzKey", nullptr);
  }();
  return instance;
}

kiv::DataTaskResult resultFrom(const std::uint8_t* data, std::size_t size) {
  const std::uint8_t flags = data[0];
  const auto status = static_cast<std::int16_t>((data[1] << 8) | data[2]);
  kiv::DataTaskResult result;
  if (flags & 0x01) {
    if (flags & 0x02) {
      result.response = kiv::NonHttpResponse{"file:///error"};
    } else {
      result.response = kiv::HttpResponse{.statusCode = status};
    }
  }
  if (!(flags & 0x04)) result.data = std::string(reinterpret_cast<const char*>(data + 3), size - 3);
  if (flags & 0x08) result.error = kiv::HttpError(kiv::HttpErrorCode::networkConnectionLost, "cut");
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const auto result = resultFrom(data, size);
  const std::string endpoint = (data[0] & 0x10) ? "https://b.example/bff/transactions/a/async"
                                                : "https://b.example/bff/sessions?asyncAttempt=true";
  kiv::KivSDKTimer::shared().start(endpoint);

  int sessionCompletions = 0;
  service()->handleResponse<kiv::SessionResponse>(endpoint, result, [&](kiv::APIResult<kiv::SessionResponse> session) {
    ++sessionCompletions;
    if (session && kiv::SessionResponse::decode(session->encode()) != *session) std::abort();
  });
  int transactionCompletions = 0;
  service()->handleResponse<kiv::KivEmptyResponse>(
      endpoint, result, [&](kiv::APIResult<kiv::KivEmptyResponse>) { ++transactionCompletions; });
  if (sessionCompletions != 1 || transactionCompletions != 1) std::abort();
  return 0;
}
