// A device identity with fixed values for tests: a phone-like device unless
// a test sets others.
//
//   auto device = std::make_shared<FixedDeviceIdentity>();
//   device->update([](auto& v) { v.screen.scale = 2.0; v.environment["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone12,1"; });
#pragma once

#include <functional>
#include <map>
#include <mutex>

#include "kiv/platform/device_identity.hpp"

namespace kiv {

class FixedDeviceIdentity final : public DeviceIdentity {
 public:
  struct Values {
    std::string machine = "iPhone12,1";
    std::string systemName = "iOS";
    std::string systemVersion = "17.5";
    int systemMajorVersion = 17;
    ScreenMetrics screen{390, 844, 3.0};
    std::optional<std::string> language = "en";
    std::optional<std::string> region = "US";
    HostBundle bundle{"HostApp", "2.4.1", "241", "com.example.host"};
    DeviceUuid advertisingIdentifier{};
    std::map<std::string, std::string, std::less<>> environment;
  };

  void update(const std::function<void(Values&)>& change) {
    std::lock_guard lock(mutex_);
    change(values_);
  }

  std::string machineIdentifier() const override { return values().machine; }
  std::string systemName() const override { return values().systemName; }
  std::string systemVersion() const override { return values().systemVersion; }
  int systemMajorVersion() const override { return values().systemMajorVersion; }
  ScreenMetrics screen() const override { return values().screen; }
  std::optional<std::string> languageCode() const override { return values().language; }
  std::optional<std::string> regionCode() const override { return values().region; }
  HostBundle hostBundle() const override { return values().bundle; }
  DeviceUuid advertisingIdentifier() const override { return values().advertisingIdentifier; }
  std::optional<std::string> environmentValue(std::string_view name) const override {
    std::lock_guard lock(mutex_);
    auto it = values_.environment.find(name);
    if (it == values_.environment.end()) return std::nullopt;
    return it->second;
  }

 private:
  Values values() const {
    std::lock_guard lock(mutex_);
    return values_;
  }
  mutable std::mutex mutex_;
  Values values_;
};

}  // namespace kiv
