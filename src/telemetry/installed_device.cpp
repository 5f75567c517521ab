#include "telemetry/installed_device.hpp"

#include "base/no_destructor.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

class BlankDevice final : public DeviceIdentity {
 public:
  std::string machineIdentifier() const override { return {}; }
  std::string systemName() const override { return {}; }
  std::string systemVersion() const override { return {}; }
  int systemMajorVersion() const override { return 0; }
  ScreenMetrics screen() const override { return {}; }
  std::optional<std::string> languageCode() const override { return std::nullopt; }
  std::optional<std::string> regionCode() const override { return std::nullopt; }
  HostBundle hostBundle() const override { return {}; }
  DeviceUuid advertisingIdentifier() const override { return {}; }
  std::optional<std::string> environmentValue(std::string_view) const override { return std::nullopt; }
};

}  // namespace

std::shared_ptr<const DeviceIdentity> installedDevice() {
  if (auto device = platform()->device) return device;
  static NoDestructor<std::shared_ptr<const BlankDevice>> blank(std::make_shared<const BlankDevice>());
  return *blank;
}

}  // namespace kiv
