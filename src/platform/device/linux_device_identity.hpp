// The Linux device identity, and the text parsers it is built on (kept
// visible for tests).
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "kiv/platform/device_identity.hpp"

namespace kiv {

// The variables of an os-release file (KEY=value lines, values optionally in
// single or double quotes with backslash escapes, # comments).
std::map<std::string, std::string> parseOsRelease(std::string_view text);

struct LocaleCodes {
  std::optional<std::string> language;
  std::optional<std::string> region;
};

// "en_GB.UTF-8@euro" gives en and GB; "de" gives de alone; "C", "POSIX" and
// "C.UTF-8" give neither (no language was chosen).
LocaleCodes parseLocaleName(std::string_view name);

// The leading decimal number of a version text ("12" -> 12, "6.1.0-18" -> 6),
// 0 when it has none.
int leadingVersionNumber(std::string_view version);

class LinuxDeviceIdentity final : public DeviceIdentity {
 public:
  explicit LinuxDeviceIdentity(LinuxDeviceOptions options);

  std::string machineIdentifier() const override;
  std::string systemName() const override;
  std::string systemVersion() const override;
  int systemMajorVersion() const override;
  ScreenMetrics screen() const override;
  std::optional<std::string> languageCode() const override;
  std::optional<std::string> regionCode() const override;
  HostBundle hostBundle() const override;
  DeviceUuid advertisingIdentifier() const override;
  std::optional<std::string> environmentValue(std::string_view name) const override;

 private:
  struct System {
    std::string machine;
    std::string name;
    std::string version;
  };
  // Read once, on first use: none of it changes while the process runs.
  const System& system() const;
  LocaleCodes locale() const;

  const LinuxDeviceOptions options_;
  mutable std::once_flag systemOnce_;
  mutable System system_;
};

}  // namespace kiv
