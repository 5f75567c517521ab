#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "c_api/host_services.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/task_pool.hpp"

namespace kiv::c_api {
namespace {

// Requests waiting for the host's answer, by number. Never destroyed: an
// answer may come while the process exits.
class RequestTable {
 public:
  std::uint64_t add(CameraAuthorization::Completion completion) {
    std::lock_guard lock(mutex_);
    const auto number = next_++;
    waiting_.emplace(number, std::move(completion));
    return number;
  }
  std::optional<CameraAuthorization::Completion> take(std::uint64_t number) {
    std::lock_guard lock(mutex_);
    auto found = waiting_.find(number);
    if (found == waiting_.end()) return std::nullopt;
    auto completion = std::move(found->second);
    waiting_.erase(found);
    return completion;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::uint64_t, CameraAuthorization::Completion> waiting_;
  std::uint64_t next_ = 1;
};

RequestTable& requests() {
  static auto* instance = new RequestTable;
  return *instance;
}

class HostCamera final : public CameraAuthorization {
 public:
  explicit HostCamera(const kiv_camera& functions) : functions_(functions) {}

  CameraAuthorizationStatus status() override {
    switch (functions_.status(functions_.user_data)) {
      case KIV_CAMERA_NOT_DETERMINED:
        return CameraAuthorizationStatus::notDetermined;
      case KIV_CAMERA_RESTRICTED:
        return CameraAuthorizationStatus::restricted;
      case KIV_CAMERA_AUTHORIZED:
        return CameraAuthorizationStatus::authorized;
      case KIV_CAMERA_DENIED:
        break;
    }
    // Denied, or a value the host should not have returned: no camera.
    return CameraAuthorizationStatus::denied;
  }

  void requestAccess(Completion completion) override {
    functions_.request_access(functions_.user_data, requests().add(std::move(completion)));
  }

 private:
  const kiv_camera functions_;
};

}  // namespace

std::shared_ptr<CameraAuthorization> makeHostCamera(const kiv_camera& functions) {
  return std::make_shared<HostCamera>(functions);
}

}  // namespace kiv::c_api

extern "C" kiv_status kiv_camera_answer(kiv_camera_request request, int granted) {
  try {
    auto completion = kiv::c_api::requests().take(request);
    if (!completion) return KIV_ERROR_INVALID_ARGUMENT;
    // Never inside the host's call: the completion may run on any thread
    // but the caller's stack.
    kiv::platform()->taskPool->post(
        [completion = std::move(*completion), granted = granted != 0] { completion(granted); });
    return KIV_OK;
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}
