// Camera access on a Linux desktop, through the desktop's camera portal
// (org.freedesktop.portal.Camera, the prompt a Flatpak or GNOME app shows).
//
//   bundle.camera = kiv::gtk::makePortalCameraAuthorization(window);
//
// With a portal on the session bus: restricted when it reports no camera,
// otherwise notDetermined, and a request is the portal's prompt (asked once
// per sandboxed app and remembered; unsandboxed processes share one answer,
// and later portals grant them without asking). Without a session bus or a
// portal (a kiosk), the answers are those of the video devices in
// `deviceDirectory` (makeLinuxCameraAuthorization).
//
// status() may be called from any thread; it asks the bus each time, with a
// short time-out. A request's completion runs on the GLib main context's
// thread. Part of the optional kivfll-gtk library.
#pragma once

#include <filesystem>
#include <memory>

#include "kiv/platform/camera_authorization.hpp"

using GtkWindow = struct _GtkWindow;

namespace kiv::gtk {

// `parent`, when given, is the window the prompt belongs to; the caller keeps
// it alive while requests are made.
std::shared_ptr<CameraAuthorization> makePortalCameraAuthorization(GtkWindow* parent = nullptr,
                                                                   std::filesystem::path deviceDirectory = "/dev");

}  // namespace kiv::gtk
