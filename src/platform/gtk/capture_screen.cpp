#include "kiv/platform/gtk/capture_screen.hpp"

#include <gtk/gtk.h>

#include <mutex>

#include "kiv/platform/gtk/gtk_view_toolkit.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/gtk/camera_feed.hpp"
#include "platform/gtk/capture_screen.hpp"
#include "platform/gtk/gtk_view.hpp"

namespace kiv::gtk {
namespace {

using Phase = CaptureScreenState::Phase;

constexpr double kLastStatusSeconds = 0.5;

CaptureScreenState stateAfter(const Status& status) {
  CaptureScreenState state;
  std::visit(
      [&](const auto& value) {
        using Case = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<Case, Status::connecting>) {
          state.phase = Phase::connecting;
        } else if constexpr (std::is_same_v<Case, Status::connected>) {
          state.phase = Phase::connected;
        } else if constexpr (std::is_same_v<Case, Status::processing>) {
          state.phase = Phase::processing;
          state.progress = value.progress;
        } else if constexpr (std::is_same_v<Case, Status::success>) {
          state.phase = Phase::success;
        } else if constexpr (std::is_same_v<Case, Status::failure>) {
          state.phase = Phase::failure;
          if (!value.result.reasons.empty()) state.detail = value.result.reasons.front().localizedDescription;
        } else if constexpr (std::is_same_v<Case, Status::canceled>) {
          state.phase = Phase::canceled;
        } else {
          state.phase = Phase::error;
          state.detail = value.iProovError.errorDescription().value_or("");
        }
      },
      status.value());
  return state;
}

// What the screen's widgets draw. Main thread only; owned by the widgets,
// so that it lives exactly as long as they do, whichever thread lets the
// capture go.
struct Look {
  Options options;
  CaptureScreenState state;
  std::shared_ptr<const AnimationClock> clock;
  GtkWidget* area = nullptr;           // while it exists
  std::unique_ptr<CameraFeed> camera;  // while the area exists, unless animations are frozen
};

using LookRef = std::shared_ptr<Look>;

gpointer hold(const LookRef& look) { return new LookRef(look); }
void release(gpointer data) { delete static_cast<LookRef*>(data); }
Look& lookOf(gpointer data) { return **static_cast<LookRef*>(data); }

// One capture's screen and what it needs to cancel as the person.
class Screen final : public std::enable_shared_from_this<Screen> {
 public:
  Screen(Options options, StatusCallback callback, std::shared_ptr<const AnimationClock> clock)
      : look_(std::make_shared<Look>(Look{std::move(options), {}, std::move(clock), nullptr, nullptr})),
        callback_(std::move(callback)) {}

  void setRun(std::shared_ptr<CaptureRun> run) { run_ = std::move(run); }

  // The vendor's status, from any thread: shown on the main thread, and
  // handed on where the vendor gave it.
  void report(const Status& status) {
    {
      // After the person closed the screen nothing more; otherwise the
      // vendor's statuses pass as they come, late ones included.
      std::lock_guard lock(mutex_);
      if (closed_) return;
      if (status.isFinal()) ended_ = true;
    }
    show(stateAfter(status));
    callback_(status);
  }

  // Main thread: builds the screen's widgets into the vendor's controller.
  void attach(const std::shared_ptr<ViewController>& controller) {
    if (attached_ || !controller) return;
    attached_ = true;
    GtkWidget* area = gtk_drawing_area_new();
    look_->area = area;
    gtk_drawing_area_set_draw_func(
        GTK_DRAWING_AREA(area),
        [](GtkDrawingArea*, cairo_t* cr, int width, int height, gpointer data) {
          const Look& look = lookOf(data);
          drawCaptureScreen(cr, width, height, look.options, look.state, look.clock->now(),
                            look.camera ? look.camera->latest() : nullptr);
        },
        hold(look_),
        [](gpointer data) {
          lookOf(data).area = nullptr;
          lookOf(data).camera.reset();
          release(data);
        });
    GtkWidget* glyph = gtk_drawing_area_new();
    gtk_drawing_area_set_draw_func(
        GTK_DRAWING_AREA(glyph),
        [](GtkDrawingArea*, cairo_t* cr, int width, int height, gpointer data) {
          drawCloseGlyph(cr, width, height, lookOf(data).options);
        },
        hold(look_), release);
    GtkWidget* close = gtk_button_new();
    gtk_button_set_has_frame(GTK_BUTTON(close), FALSE);
    gtk_button_set_child(GTK_BUTTON(close), glyph);
    gtk_widget_set_size_request(close, static_cast<int>(kCloseButtonSide), static_cast<int>(kCloseButtonSide));
    gtk_widget_set_halign(close, GTK_ALIGN_START);
    gtk_widget_set_valign(close, GTK_ALIGN_START);
    gtk_widget_set_margin_start(close, 8);
    gtk_widget_set_margin_top(close, static_cast<int>((kAppBarHeight - kCloseButtonSide) / 2));
    gtk_widget_set_tooltip_text(close, "Close");
    g_signal_connect_data(
        close, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
          if (auto self = static_cast<std::weak_ptr<Screen>*>(data)->lock()) self->closeAsThePerson();
        }),
        new std::weak_ptr<Screen>(weak_from_this()),
        [](gpointer data, GClosure*) { delete static_cast<std::weak_ptr<Screen>*>(data); }, G_CONNECT_DEFAULT);
    GtkWidget* root = gtk_overlay_new();
    gtk_overlay_set_child(GTK_OVERLAY(root), area);
    gtk_overlay_add_overlay(GTK_OVERLAY(root), close);
    setContentWidget(controller->view(), root);
    if (!look_->clock->frozen()) {
      // A screenshot (frozen animations) always shows the test pattern.
      look_->camera = std::make_unique<CameraFeed>();
      gtk_widget_add_tick_callback(
          area,
          [](GtkWidget* widget, GdkFrameClock*, gpointer) -> gboolean {
            gtk_widget_queue_draw(widget);  // the picture moves
            return G_SOURCE_CONTINUE;
          },
          nullptr, nullptr);
    }
  }

 private:
  void show(const CaptureScreenState& state) {
    auto update = [look = look_, state] {
      look->state = state;
      if (look->area) gtk_widget_queue_draw(look->area);
    };
    const auto& main = platform()->mainQueue;
    if (main->isCurrent()) {
      update();
    } else {
      main->post(update);
    }
  }

  // Main thread. The person pressed close: the capture stops and the caller
  // hears that the user cancelled, as from the vendor's own close button.
  void closeAsThePerson() {
    {
      std::lock_guard lock(mutex_);
      if (ended_ || closed_) return;
      closed_ = true;
    }
    if (auto run = run_.lock()) run->cancel();
    show(CaptureScreenState{Phase::canceled, 0, {}});
    callback_(Status::canceled{Canceler::user});
  }

  const LookRef look_;  // touched on the main thread only
  const StatusCallback callback_;
  std::mutex mutex_;
  bool ended_ = false;   // a final status came; guarded by mutex_
  bool closed_ = false;  // the person closed the screen; guarded by mutex_
  // Main thread.
  std::weak_ptr<CaptureRun> run_;
  bool attached_ = false;
};

// Stands between the vendor and the SDK's presenter: fills the vendor's
// controller with the screen before it is shown.
class ScreenPresenter final : public IProovPresentationDelegate {
 public:
  ScreenPresenter(std::shared_ptr<Screen> screen, std::weak_ptr<IProovPresentationDelegate> presenter)
      : screen_(std::move(screen)), presenter_(std::move(presenter)) {}

  void present(std::shared_ptr<ViewController> controller, Task completion) override {
    screen_->attach(controller);
    if (auto presenter = presenter_.lock()) {
      presenter->present(std::move(controller), std::move(completion));
    } else if (completion) {
      completion();
    }
  }

  // The screen stays up a moment with its last status (the full ring, the
  // reason for a failure) before the vendor's request to take it down goes on.
  void dismiss(std::shared_ptr<ViewController> controller, Task completion) override {
    platform()->mainQueue->postAfter(kLastStatusSeconds, [presenter = presenter_, controller = std::move(controller),
                                                          completion = std::move(completion)]() mutable {
      if (auto alive = presenter.lock()) {
        alive->dismiss(std::move(controller), std::move(completion));
      } else {
        controller->dismiss(false, std::move(completion));
      }
    });
  }

 private:
  const std::shared_ptr<Screen> screen_;
  const std::weak_ptr<IProovPresentationDelegate> presenter_;
};

class CaptureScreenVendor final : public CaptureVendor {
 public:
  explicit CaptureScreenVendor(std::shared_ptr<CaptureVendor> inner) : inner_(std::move(inner)) {}

  std::shared_ptr<CaptureRun> launch(std::string streamingURL, std::string token, Options options,
                                     StatusCallback callback) override {
    auto clock = animationClock();
    if (!clock)
      return inner_->launch(std::move(streamingURL), std::move(token), std::move(options), std::move(callback));
    auto screen = std::make_shared<Screen>(options, std::move(callback), std::move(clock));
    // The options hold the delegate weakly; the status callback, which the
    // inner run keeps until it is over, holds it for the capture.
    auto presenter = std::make_shared<ScreenPresenter>(screen, options.presentationDelegate);
    options.presentationDelegate = presenter;
    auto run = inner_->launch(std::move(streamingURL), std::move(token), std::move(options),
                              [screen, presenter](const Status& status) { screen->report(status); });
    screen->setRun(run);
    return run;
  }

 private:
  std::shared_ptr<CaptureVendor> inner_;
};

}  // namespace

std::shared_ptr<CaptureVendor> withCaptureScreen(std::shared_ptr<CaptureVendor> inner) {
  return std::make_shared<CaptureScreenVendor>(std::move(inner));
}

}  // namespace kiv::gtk
