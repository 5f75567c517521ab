// The main queue of a GTK (or any GLib) host: tasks run as sources on a GLib
// main context, so the host lends its own loop and never runs ours.
//
//   auto bundle = kiv::makeLinuxPlatform();
//   bundle.mainQueue = std::make_shared<kiv::gtk::GlibMainQueue>();   // the default context
//   kiv::installPlatform(std::move(bundle));
//   g_application_run(app, argc, argv);
//
// isCurrent() holds on the thread that owns the context (the thread inside
// g_main_loop_run or g_application_run, or one that acquired the context):
// before the loop runs nothing is current, so a host makes its first SDK
// calls from inside the loop (an activate handler, a posted task).
//
// Part of the optional kivfll-gtk library.
#pragma once

#include <memory>

#include "kiv/platform/main_queue.hpp"

using GMainContext = struct _GMainContext;

namespace kiv::gtk {

class GlibMainQueue final : public MainQueue {
 public:
  // Null: the global default context, the one GTK runs.
  explicit GlibMainQueue(GMainContext* context = nullptr);
  // Drops the tasks still waiting; a posted task that runs later does nothing.
  ~GlibMainQueue() override;
  GlibMainQueue(const GlibMainQueue&) = delete;
  GlibMainQueue& operator=(const GlibMainQueue&) = delete;

  void post(Task task) override;
  DelayedTaskHandle postAfter(double seconds, Task task, OwnerToken owner = nullptr) override;
  void cancelAll(OwnerToken owner) override;
  bool isCurrent() const override;

  struct State;  // opaque; public so that the sources can hold it weakly

 private:
  std::shared_ptr<State> state_;
};

}  // namespace kiv::gtk
