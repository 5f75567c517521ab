// The SDK's views on GTK 4: the loading overlay, the GIF overlay and the
// capture vendor's screen drawn in a host's windows.
//
// Install the toolkit with the GLib main queue (glib_main_queue.hpp) after
// gtk_init(), and hand the SDK the controller at the root of a window:
//
//   auto bundle = kiv::makeLinuxPlatform();
//   bundle.mainQueue = std::make_shared<kiv::gtk::GlibMainQueue>();
//   bundle.ui = kiv::gtk::makeGtkViewToolkit();
//   kiv::installPlatform(std::move(bundle));
//   ...
//   auto host = kiv::gtk::makeWindowController(window);   // inside the loop
//   kiv::gtk::setContentWidget(host->view(), myPage);      // the host's own widgets
//   sdk->startSDK(host);
//
// Views keep the headless toolkit's rules (frames in points, one point one
// pixel, subviews on top of their superview's content), each drawn by one
// widget. A controller presented full screen (or over full screen) covers
// its presenter inside the same window; any other style opens a modal
// window, transient for the presenter's, that closing dismisses.
//
// Part of the optional kivfll-gtk library. Main thread only.
#pragma once

#include <filesystem>
#include <memory>

#include "kiv/platform/ui/view_toolkit.hpp"

using GtkWidget = struct _GtkWidget;
using GtkWindow = struct _GtkWindow;

namespace kiv::gtk {

// Fonts come from fontconfig, as the headless toolkit's. With
// `frozenAnimations` every animation, indicator and moving picture stays at
// its first frame, so that a screenshot is the same every time.
std::shared_ptr<ViewToolkit> makeGtkViewToolkit(bool frozenAnimations = false);

// The controller at the root of `window`, whose view fills the window's
// content area from now on. The caller keeps it alive while the window shows
// it. Needs the GTK toolkit installed.
std::shared_ptr<ViewController> makeWindowController(GtkWindow* window);

// Shows `widget` inside `view` (a view of the GTK toolkit), filling it, under
// its subviews; null removes what was there. False for a view of another
// toolkit.
bool setContentWidget(const std::shared_ptr<View>& view, GtkWidget* widget);

// Writes what `widget` shows now (after the last frame was drawn) to a PNG
// file. False when it is not on screen or the file cannot be written.
bool saveWidgetPng(GtkWidget* widget, const std::filesystem::path& file);

// The widget of the window's content: what a screenshot of the SDK's screens
// over a host should show. Null when `controller` is not a window's root.
GtkWidget* windowContentWidget(const std::shared_ptr<ViewController>& controller);

}  // namespace kiv::gtk
