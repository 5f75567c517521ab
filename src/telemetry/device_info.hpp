// The device and host application as telemetry describes them.
//
// deviceData() is the ten-line text sent with every analytics event; the
// model is reported by marketing name ("iPhone 11"), looked up once per
// process from the hardware identifier.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv {

// Read from the process environment when the hardware identifier says the
// SDK runs in a simulator.
inline constexpr std::string_view kSimulatorModelVariable = "SIMULATOR_MODEL_IDENTIFIER";

class KivDeviceInfo {
 public:
  // Ten lines joined by "\n", no trailing newline: model, system name,
  // system version, SDK level, manufacturer, screen resolution, density,
  // scale, preferred language, region.
  static std::string deviceData();

  // The host bundle's name, when it has one.
  static std::optional<std::string> appName();
  // "version: <short version> buildNumber: <build>", each empty when absent.
  static std::string appVersion();

  // The marketing name of a hardware identifier; a simulator identifier
  // ("i386", "x86_64") gives "Simulator " + the name of the model the
  // simulator runs; an unknown identifier comes back unchanged.
  static std::string modelName(std::string_view identifier);
  // The hardware identifier of this device.
  static std::string modelIdentifier();
};

}  // namespace kiv
