// The operating-system services the SDK uses, as one bundle.
//
// Logic code never reaches the OS directly: it asks kiv::platform() for the
// installed bundle. Unless a host installs its own (for instance one that
// bridges a phone's toolkit), the Linux bundle is installed on first use.
//
//   auto bundle = kiv::makeLinuxPlatform();
//   bundle.console = myConsole;
//   kiv::installPlatform(std::move(bundle));
//
// Install before the first SDK call; a bundle in use stays alive until every
// holder has dropped it.
#pragma once

#include <functional>
#include <memory>

#include "kiv/platform/clock.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/task_pool.hpp"

namespace kiv {

class HttpSessionFactory;
class SecureItemStore;
class UserDefaults;
class PathMonitorFactory;
class CameraAuthorization;
class NotificationCenter;
class DeviceIdentity;
class ViewToolkit;
class CaptureVendor;
class CrashPrimitives;
class DeviceIntegrity;

struct Platform {
  std::shared_ptr<MainQueue> mainQueue;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<TaskPool> taskPool;
  std::shared_ptr<Console> console;
  std::shared_ptr<HttpSessionFactory> http;
  std::shared_ptr<SecureItemStore> secureStore;
  std::shared_ptr<UserDefaults> defaults;
  std::shared_ptr<PathMonitorFactory> pathMonitor;
  std::shared_ptr<CameraAuthorization> camera;
  std::shared_ptr<NotificationCenter> notifications;
  std::shared_ptr<DeviceIdentity> device;
  std::shared_ptr<ViewToolkit> ui;
  std::shared_ptr<CaptureVendor> capture;
  std::shared_ptr<CrashPrimitives> crash;
  std::shared_ptr<DeviceIntegrity> integrity;
};

// The Linux services: an Asio main loop (the host runs it, see MainLoop), the
// system clock, a thread pool, standard output, and the real implementations
// of the other services.
Platform makeLinuxPlatform();

// Replaces the installed bundle. Safe from any thread.
void installPlatform(Platform bundle);

// Installs a copy of the installed bundle (the Linux one if nothing was
// installed yet) with `change` applied, in one step against other installs:
// for a service that may change after the SDK started (a test's camera
// answer). `change` runs under the install lock and must not reach the
// platform itself. Safe from any thread.
void updatePlatform(const std::function<void(Platform&)>& change);

// The installed bundle (the Linux one if nothing was installed yet).
std::shared_ptr<const Platform> platform();

}  // namespace kiv
