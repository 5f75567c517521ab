#include "telemetry/device_info.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <utility>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "base/seconds_text.hpp"
#include "telemetry/installed_device.hpp"

namespace kiv {
namespace {

using Model = std::pair<std::string_view, std::string_view>;  // identifier, marketing name

constexpr std::array kModels = std::to_array<Model>({
    {"iPhone3,1", "iPhone 4"},
    {"iPhone3,2", "iPhone 4"},
    {"iPhone3,3", "iPhone 4"},
    {"iPhone4,1", "iPhone 4s"},
    {"iPhone5,1", "iPhone 5"},
    {"iPhone5,2", "iPhone 5"},
    {"iPhone5,3", "iPhone 5c"},
    {"iPhone5,4", "iPhone 5c"},
    {"iPhone6,1", "iPhone 5s"},
    {"iPhone6,2", "iPhone 5s"},
    {"iPhone7,2", "iPhone 6"},
    {"iPhone7,1", "iPhone 6 Plus"},
    {"iPhone8,1", "iPhone 6s"},
    {"iPhone8,2", "iPhone 6s Plus"},
    {"iPhone8,4", "iPhone SE"},
    {"iPhone9,1", "iPhone 7"},
    {"iPhone9,3", "iPhone 7"},
    {"iPhone9,2", "iPhone 7 Plus"},
    {"iPhone9,4", "iPhone 7 Plus"},
    {"iPhone10,1", "iPhone 8"},
    {"iPhone10,4", "iPhone 8"},
    {"iPhone10,2", "iPhone 8 Plus"},
    {"iPhone10,5", "iPhone 8 Plus"},
    {"iPhone10,3", "iPhone X"},
    {"iPhone10,6", "iPhone X"},
    {"iPhone11,2", "iPhone XS"},
    {"iPhone11,4", "iPhone XS Max"},
    {"iPhone11,6", "iPhone XS Max"},
    {"iPhone11,8", "iPhone XR"},
    {"iPhone12,1", "iPhone 11"},
    {"iPhone12,3", "iPhone 11 Pro"},
    {"iPhone12,5", "iPhone 11 Pro Max"},
    {"iPod5,1", "iPod touch (5th generation)"},
    {"iPod7,1", "iPod touch (6th generation)"},
    {"iPod9,1", "iPod touch (7th generation)"},
    {"iPad2,1", "iPad 2"},
    {"iPad2,2", "iPad 2"},
    {"iPad2,3", "iPad 2"},
    {"iPad2,4", "iPad 2"},
    {"iPad3,1", "iPad (3rd generation)"},
    {"iPad3,2", "iPad (3rd generation)"},
    {"iPad3,3", "iPad (3rd generation)"},
    {"iPad3,4", "iPad (4th generation)"},
    {"iPad3,5", "iPad (4th generation)"},
    {"iPad3,6", "iPad (4th generation)"},
    {"iPad6,11", "iPad (5th generation)"},
    {"iPad6,12", "iPad (5th generation)"},
    {"iPad7,5", "iPad (6th generation)"},
    {"iPad7,6", "iPad (6th generation)"},
    {"iPad7,11", "iPad (7th generation)"},
    {"iPad7,12", "iPad (7th generation)"},
    {"iPad4,1", "iPad Air"},
    {"iPad4,2", "iPad Air"},
    {"iPad4,3", "iPad Air"},
    {"iPad5,3", "iPad Air 2"},
    {"iPad5,4", "iPad Air 2"},
    {"iPad11,4", "iPad Air (3rd generation)"},
    {"iPad11,5", "iPad Air (3rd generation)"},
    {"iPad2,5", "iPad mini"},
    {"iPad2,6", "iPad mini"},
    {"iPad2,7", "iPad mini"},
    {"iPad4,4", "iPad mini 2"},
    {"iPad4,5", "iPad mini 2"},
    {"iPad4,6", "iPad mini 2"},
    {"iPad4,7", "iPad mini 3"},
    {"iPad4,8", "iPad mini 3"},
    {"iPad4,9", "iPad mini 3"},
    {"iPad5,1", "iPad mini 4"},
    {"iPad5,2", "iPad mini 4"},
    {"iPad11,1", "iPad mini (5th generation)"},
    {"iPad11,2", "iPad mini (5th generation)"},
    {"iPad6,3", "iPad Pro (9.7-inch)"},
    {"iPad6,4", "iPad Pro (9.7-inch)"},
    {"iPad7,3", "iPad Pro (10.5-inch)"},
    {"iPad7,4", "iPad Pro (10.5-inch)"},
    {"iPad8,1", "iPad Pro (11-inch)"},
    {"iPad8,2", "iPad Pro (11-inch)"},
    {"iPad8,3", "iPad Pro (11-inch)"},
    {"iPad8,4", "iPad Pro (11-inch)"},
    {"iPad6,7", "iPad Pro (12.9-inch)"},
    {"iPad6,8", "iPad Pro (12.9-inch)"},
    {"iPad7,1", "iPad Pro (12.9-inch) (2nd generation)"},
    {"iPad7,2", "iPad Pro (12.9-inch) (2nd generation)"},
    {"iPad8,5", "iPad Pro (12.9-inch) (3rd generation)"},
    {"iPad8,6", "iPad Pro (12.9-inch) (3rd generation)"},
    {"iPad8,7", "iPad Pro (12.9-inch) (3rd generation)"},
    {"iPad8,8", "iPad Pro (12.9-inch) (3rd generation)"},
    {"AppleTV5,3", "Apple TV"},
    {"AppleTV6,2", "Apple TV 4K"},
    {"AudioAccessory1,1", "HomePod"},
});

constexpr std::string_view kSimulatorFallbackModel = "iOS";
constexpr std::string_view kManufacturer = "Apple";
constexpr std::string_view kUnknown = "Unknown";

bool isSimulator(std::string_view identifier) { return identifier == "i386" || identifier == "x86_64"; }

std::optional<std::string_view> tableName(std::string_view identifier) {
  for (const auto& [id, name] : kModels) {
    if (id == identifier) return name;
  }
  return std::nullopt;
}

// Steps 1 and 3 of the lookup, without the simulator rule.
std::string nameOrIdentifier(std::string_view identifier) {
  return std::string(tableName(identifier).value_or(identifier));
}

// The model name is worked out once per process; tests start afresh.
ProcessSlot<std::optional<std::string>>& modelNameCache() {
  static NoDestructor<ProcessSlot<std::optional<std::string>>> cache;
  return *cache;
}

std::string cachedModelName() {
  return modelNameCache().update([](std::optional<std::string>& name) {
    if (!name) name = KivDeviceInfo::modelName(KivDeviceInfo::modelIdentifier());
    return *name;
  });
}

// Host-given sizes can be anything; text is only made of finite, sane ones.
long long wholePoints(double value) {
  if (!std::isfinite(value)) return 0;
  return static_cast<long long>(std::clamp(value, -1e15, 1e15));  // truncates toward zero
}

}  // namespace

std::string KivDeviceInfo::modelIdentifier() { return installedDevice()->machineIdentifier(); }

std::string KivDeviceInfo::modelName(std::string_view identifier) {
  if (const auto name = tableName(identifier)) return std::string(*name);
  if (isSimulator(identifier)) {
    const auto simulated = installedDevice()->environmentValue(kSimulatorModelVariable);
    return "Simulator " + nameOrIdentifier(simulated.value_or(std::string(kSimulatorFallbackModel)));
  }
  return std::string(identifier);
}

std::string KivDeviceInfo::deviceData() {
  const std::string model = cachedModelName();
  const auto identity = installedDevice();
  const ScreenMetrics screen = identity->screen();
  const double density = std::isfinite(screen.scale) ? std::round(screen.scale * 160) : 0;
  const std::string lines[] = {
      "Device Model: " + model,
      "System Name: " + identity->systemName(),
      "System Version: " + identity->systemVersion(),
      "SDK Level: " + std::to_string(identity->systemMajorVersion()),
      "Device Manufacturer: " + std::string(kManufacturer),
      "Screen Resolution: " + std::to_string(wholePoints(screen.width)) + " x " +
          std::to_string(wholePoints(screen.height)),
      "Screen Density: " + std::to_string(wholePoints(density)) + " dpi",
      "Screen Scale: " + shortestDoubleText(screen.scale),
      "Preferred Language: " + identity->languageCode().value_or(std::string(kUnknown)),
      "Region: " + identity->regionCode().value_or(std::string(kUnknown)),
  };
  std::string text;
  for (const auto& line : lines) {
    if (!text.empty()) text += '\n';
    text += line;
  }
  return text;
}

std::optional<std::string> KivDeviceInfo::appName() { return installedDevice()->hostBundle().name; }

std::string KivDeviceInfo::appVersion() {
  const HostBundle bundle = installedDevice()->hostBundle();
  return "version: " + bundle.shortVersion.value_or("") + " buildNumber: " + bundle.buildVersion.value_or("");
}

}  // namespace kiv
