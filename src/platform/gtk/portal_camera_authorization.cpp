#include "kiv/platform/gtk/portal_camera_authorization.hpp"

#include <gio/gio.h>
#include <gtk/gtk.h>
#include <libportal-gtk4/portal-gtk4.h>
#include <libportal/portal.h>

#include <utility>

namespace kiv::gtk {
namespace {

constexpr const char* kPortalService = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kCameraInterface = "org.freedesktop.portal.Camera";
constexpr int kBusTimeoutMs = 2000;  // a portal that is slower than this is treated as absent

class PortalCameraAuthorization final : public CameraAuthorization {
 public:
  PortalCameraAuthorization(GtkWindow* parent, std::filesystem::path deviceDirectory)
      : parent_(parent), devices_(makeLinuxCameraAuthorization(std::move(deviceDirectory))) {}

  CameraAuthorizationStatus status() override {
    auto present = cameraPresent();
    if (!present) return devices_->status();
    return *present ? CameraAuthorizationStatus::notDetermined : CameraAuthorizationStatus::restricted;
  }

  void requestAccess(Completion completion) override {
    if (!cameraPresent()) return devices_->requestAccess(std::move(completion));
    // libportal answers on the thread of the context the call was made on:
    // the call is made from the main context.
    g_main_context_invoke(nullptr, askPortal, new Request{parent_, std::move(completion)});
  }

 private:
  struct Request {
    GtkWindow* window;
    Completion completion;
    XdpParent* parent = nullptr;  // kept until the answer, in case the call still uses it
  };

  static gboolean askPortal(gpointer data) {
    XdpPortal* portal = xdp_portal_new();
    auto* request = static_cast<Request*>(data);
    request->parent = request->window ? xdp_parent_new_gtk(request->window) : nullptr;
    xdp_portal_access_camera(portal, request->parent, XDP_CAMERA_FLAG_NONE, nullptr, answered, request);
    return G_SOURCE_REMOVE;
  }

  static void answered(GObject* portal, GAsyncResult* result, gpointer data) {
    auto* request = static_cast<Request*>(data);
    GError* error = nullptr;
    const bool granted = xdp_portal_access_camera_finish(XDP_PORTAL(portal), result, &error) != FALSE;
    if (error) g_error_free(error);
    request->completion(granted);
    g_object_unref(portal);
    if (request->parent) xdp_parent_free(request->parent);
    delete request;
  }

  // Whether the portal sees a camera; absent without a session bus or portal.
  static std::optional<bool> cameraPresent() {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus) return std::nullopt;
    GVariant* reply =
        g_dbus_connection_call_sync(bus, kPortalService, kPortalPath, "org.freedesktop.DBus.Properties", "Get",
                                    g_variant_new("(ss)", kCameraInterface, "IsCameraPresent"), G_VARIANT_TYPE("(v)"),
                                    G_DBUS_CALL_FLAGS_NONE, kBusTimeoutMs, nullptr, nullptr);
    g_object_unref(bus);
    if (!reply) return std::nullopt;
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    const bool present = g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
    g_variant_unref(value);
    g_variant_unref(reply);
    return present;
  }

  GtkWindow* const parent_;
  const std::shared_ptr<CameraAuthorization> devices_;
};

}  // namespace

std::shared_ptr<CameraAuthorization> makePortalCameraAuthorization(GtkWindow* parent,
                                                                   std::filesystem::path deviceDirectory) {
  return std::make_shared<PortalCameraAuthorization>(parent, std::move(deviceDirectory));
}

}  // namespace kiv::gtk
