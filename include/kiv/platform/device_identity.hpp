// What the SDK reports about the device and the host application in its
// telemetry: hardware model, system, screen, locale, host bundle and the
// advertising identifier.
//
// Some of it the operating system knows (machine, system, locale); the rest
// only the host knows (its screen, its bundle, its advertising identifier)
// and passes in when it builds the Linux implementation:
//
//   kiv::LinuxDeviceOptions options;
//   options.screen = kiv::ScreenMetrics{390, 844, 3.0};
//   options.bundle.identifier = "com.example.host";
//   bundle.device = kiv::makeLinuxDeviceIdentity(options);
//
// Implementations are safe to call from any thread.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

// The main screen in points, and points-to-pixels scale.
struct ScreenMetrics {
  double width = 0;
  double height = 0;
  double scale = 1.0;
};

// The host application's bundle information. Absent fields are reported as
// absent (or empty) in telemetry.
struct HostBundle {
  std::optional<std::string> name;          // display name (CFBundleName on a phone)
  std::optional<std::string> shortVersion;  // marketing version, "2.4.1" (CFBundleShortVersionString)
  std::optional<std::string> buildVersion;  // build number, "241" (CFBundleVersion)
  std::optional<std::string> identifier;    // reverse-DNS identifier, "com.example.host"
};

// A 16-byte UUID, in the byte order of its text form.
using DeviceUuid = std::array<std::uint8_t, 16>;

class DeviceIdentity {
 public:
  virtual ~DeviceIdentity() = default;

  // The hardware identifier as the system reports it ("iPhone12,1",
  // "x86_64"): uname's machine field on Linux.
  virtual std::string machineIdentifier() const = 0;
  virtual std::string systemName() const = 0;
  virtual std::string systemVersion() const = 0;
  // The major number of the operating-system version (0 when unknown).
  virtual int systemMajorVersion() const = 0;

  virtual ScreenMetrics screen() const = 0;
  // The current locale's language ("en") and region ("GB") codes, when it
  // has them.
  virtual std::optional<std::string> languageCode() const = 0;
  virtual std::optional<std::string> regionCode() const = 0;

  virtual HostBundle hostBundle() const = 0;
  // All zero when the host has none to give (as a phone answers when the
  // user has not authorised tracking).
  virtual DeviceUuid advertisingIdentifier() const = 0;

  // A variable of the process environment, or absent.
  virtual std::optional<std::string> environmentValue(std::string_view name) const = 0;
};

struct LinuxDeviceOptions {
  // Absent: no screen, reported as 0 x 0 at scale 1.0.
  std::optional<ScreenMetrics> screen;
  // Absent name: the program's name.
  HostBundle bundle;
  // Absent: all zero.
  std::optional<DeviceUuid> advertisingIdentifier;
};

// Machine from uname, system name and version from os-release (uname when it
// has none), locale from the process locale, the rest from `options`.
std::shared_ptr<DeviceIdentity> makeLinuxDeviceIdentity(LinuxDeviceOptions options = {});

}  // namespace kiv

#pragma GCC visibility pop
