// Checks of the process and its device: is a debugger attached, is an
// instrumentation toolkit loaded? A violation ends the attempt that found it.
//
// An attempt checks once before it starts, then keeps a monitor running
// until it ends:
//
//   auto integrity = kiv::platform()->integrity;
//   if (auto violation = integrity->check()) fail("Security violation: " + *violation);
//   auto monitor = integrity->startMonitor([weak](std::string violation) { ... });
//   ...
//   monitor->stop();   // no report starts after this returns
//
// A host on a phone bridges its own attestation here; the Linux bundle reads
// /proc/self (src/platform/integrity/linux_device_integrity.hpp).
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kiv {

// One running monitor.
class DeviceIntegrityMonitor {
 public:
  virtual ~DeviceIntegrityMonitor() = default;
  // Stops the monitor. Idempotent and safe from any thread. Once it returns
  // no report starts; a report already running on another thread may still
  // be finishing, so the callback must hold its owner weakly (it does
  // anyway: it may run after its owner is gone). Dropping the monitor
  // without stop() stops it too.
  virtual void stop() = 0;
};

// The platform slot `integrity`.
class DeviceIntegrity {
 public:
  virtual ~DeviceIntegrity() = default;

  // Nothing, or a one-line description of the violation ("a debugger is
  // attached (TracerPid 4242)"). Safe from any thread; may read files, so
  // keep it off hot paths.
  virtual std::optional<std::string> check() = 0;

  // Re-checks periodically until stopped and calls `onViolation` with the
  // description of the first violation found, at most once per monitor, on
  // a thread of the implementation's choosing (never inline in this call).
  virtual std::shared_ptr<DeviceIntegrityMonitor> startMonitor(std::function<void(std::string)> onViolation) = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
