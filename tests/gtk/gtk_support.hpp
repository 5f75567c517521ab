// What the GTK tests share: a platform with the GLib main queue and the GTK
// toolkit (animations frozen) over a test bundle, a window with its root
// controller, and running the main context until something happened.
//
// The tests run in one process under xvfb-run; main() (gtk_toolkit_test.cpp)
// initialises GTK and makes the test thread the owner of the default main
// context, so that it is the main thread.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>

#include "kiv/platform/ui/view_controller.hpp"
#include "support/test_platform.hpp"

namespace kiv::testing {

// Runs the default main context until `done` holds. False when it did not
// within a watchdog of 20 seconds: a hang, reported as such, never a timing
// check.
bool runUntil(const std::function<bool()>& done);

// Runs the default main context until `widget`'s window has drawn a frame.
bool drawFrame(GtkWidget* widget);

class GtkPlatform {
 public:
  GtkPlatform();
  ~GtkPlatform();
  GtkPlatform(const GtkPlatform&) = delete;
  GtkPlatform& operator=(const GtkPlatform&) = delete;

  TestPlatform& test() { return platform_; }
  GtkWindow* window() const { return window_; }
  const std::shared_ptr<ViewController>& root() const { return root_; }

 private:
  TestPlatform platform_;
  GtkWindow* window_ = nullptr;
  std::shared_ptr<ViewController> root_;
};

}  // namespace kiv::testing
