#include "kiv/platform/gtk/glib_main_queue.hpp"

#include <glib.h>

#include <cmath>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

namespace kiv::gtk {

struct GlibMainQueue::State {
  struct Pending {
    OwnerToken owner;
    DelayedTaskHandle handle;
    GSource* source;  // not owned; alive while it is listed
  };

  explicit State(GMainContext* given) : context(g_main_context_ref(given ? given : g_main_context_default())) {}
  ~State() { g_main_context_unref(context); }

  GMainContext* const context;
  std::mutex mutex;
  std::list<Pending> pending;  // delayed tasks not yet run or dropped
};

namespace {

// What a source carries; freed by GLib when the source goes, whether it ran
// or was destroyed.
struct Posted {
  std::weak_ptr<GlibMainQueue::State> state;
  Task task;
};

struct Delayed {
  std::weak_ptr<GlibMainQueue::State> state;
  Task task;
  DelayedTaskHandle handle;
  std::list<GlibMainQueue::State::Pending>::iterator entry;
};

gboolean runPosted(gpointer data) {
  auto* posted = static_cast<Posted*>(data);
  if (posted->state.lock() && posted->task) std::exchange(posted->task, {})();
  return G_SOURCE_REMOVE;
}

gboolean runDelayed(gpointer data) {
  auto* delayed = static_cast<Delayed*>(data);
  if (delayed->state.lock() && !delayed->handle.isCancelled() && delayed->task) std::exchange(delayed->task, {})();
  return G_SOURCE_REMOVE;
}

void forgetDelayed(gpointer data) {
  auto* delayed = static_cast<Delayed*>(data);
  if (auto state = delayed->state.lock()) {
    std::lock_guard lock(state->mutex);
    state->pending.erase(delayed->entry);
  }
  delete delayed;
}

// Destroys each source outside the queue's lock: destroying one runs its
// destroy notify, which takes the lock.
void destroyAll(const std::vector<GSource*>& sources) {
  for (auto* source : sources) {
    g_source_destroy(source);
    g_source_unref(source);
  }
}

}  // namespace

GlibMainQueue::GlibMainQueue(GMainContext* context) : state_(std::make_shared<State>(context)) {}

GlibMainQueue::~GlibMainQueue() {
  std::vector<GSource*> sources;
  {
    std::lock_guard lock(state_->mutex);
    for (auto& p : state_->pending) {
      p.handle.cancel();
      sources.push_back(g_source_ref(p.source));
    }
  }
  destroyAll(sources);
}

void GlibMainQueue::post(Task task) {
  // Idle sources of one priority are dispatched in the order they were
  // attached, which keeps posts in order.
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, runPosted, new Posted{state_, std::move(task)},
                        [](gpointer data) { delete static_cast<Posted*>(data); });
  g_source_attach(source, state_->context);
  g_source_unref(source);
}

DelayedTaskHandle GlibMainQueue::postAfter(double seconds, Task task, OwnerToken owner) {
  DelayedTaskHandle handle(std::make_shared<std::atomic<bool>>(false));
  const double milliseconds = std::ceil((seconds > 0 ? seconds : 0) * 1000.0);
  GSource* source = g_timeout_source_new(milliseconds < G_MAXUINT ? static_cast<guint>(milliseconds) : G_MAXUINT);
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  auto* delayed = new Delayed{state_, std::move(task), handle, {}};
  {
    // Listed and attached at once: a cancelAll() in between would destroy a
    // source that is not attached yet. GLib never calls back into this
    // queue with its own lock held, so taking it here cannot deadlock.
    std::lock_guard lock(state_->mutex);
    delayed->entry = state_->pending.insert(state_->pending.end(), State::Pending{owner, handle, source});
    g_source_set_callback(source, runDelayed, delayed, forgetDelayed);
    g_source_attach(source, state_->context);
  }
  g_source_unref(source);  // the context holds it until it ran or was destroyed
  return handle;
}

void GlibMainQueue::cancelAll(OwnerToken owner) {
  std::vector<GSource*> sources;
  {
    std::lock_guard lock(state_->mutex);
    for (auto& p : state_->pending) {
      if (p.owner != owner) continue;
      p.handle.cancel();
      sources.push_back(g_source_ref(p.source));
    }
  }
  // Destroying releases the task (and what it captured) now.
  destroyAll(sources);
}

bool GlibMainQueue::isCurrent() const { return g_main_context_is_owner(state_->context) != FALSE; }

}  // namespace kiv::gtk
