#include <fcntl.h>
#include <unistd.h>

#include <system_error>

#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

class LinuxCameraAuthorization final : public CameraAuthorization {
 public:
  explicit LinuxCameraAuthorization(std::filesystem::path deviceDirectory)
      : deviceDirectory_(std::move(deviceDirectory)) {}

  CameraAuthorizationStatus status() override {
    bool found = false;
    std::error_code error;
    for (std::filesystem::directory_iterator it(deviceDirectory_, error), end; !error && it != end;
         it.increment(error)) {
      if (!it->path().filename().string().starts_with("video")) continue;
      found = true;
      // Non-blocking, so a device another process streams from does not
      // hold us up; the open alone is the permission question.
      const int fd = ::open(it->path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
      if (fd >= 0) {
        ::close(fd);
        return CameraAuthorizationStatus::authorized;
      }
    }
    return found ? CameraAuthorizationStatus::denied : CameraAuthorizationStatus::restricted;
  }

  void requestAccess(Completion completion) override {
    const bool granted = status() == CameraAuthorizationStatus::authorized;
    platform()->taskPool->post([completion = std::move(completion), granted] { completion(granted); });
  }

 private:
  const std::filesystem::path deviceDirectory_;
};

}  // namespace

std::shared_ptr<CameraAuthorization> makeLinuxCameraAuthorization(std::filesystem::path deviceDirectory) {
  return std::make_shared<LinuxCameraAuthorization>(std::move(deviceDirectory));
}

}  // namespace kiv
