#include "window_stage.hpp"

#include <gtk/gtk.h>

#include <cstdlib>
#include <deque>
#include <functional>
#include <iostream>

#include "kiv/gif_overlay_view.hpp"
#include "kiv/platform/gtk/capture_screen.hpp"
#include "kiv/platform/gtk/glib_main_queue.hpp"
#include "kiv/platform/gtk/gtk_view_toolkit.hpp"
#include "kiv/platform/gtk/portal_camera_authorization.hpp"

namespace kiv::cli {

constexpr int kWindowWidth = 360;
constexpr int kWindowHeight = 640;
// Long enough for a person to read the host's page before it starts.
constexpr double kAutoStartSeconds = 1.0;
// Once the window is on screen.
constexpr double kHostShotSeconds = 0.4;
// Once the vendor's screen went down (it shows its last status half a second).
constexpr double kOutcomeShotSeconds = 1.0;
// A frame after that one.
constexpr double kOverlayShotSeconds = 1.3;

// Outcome::summary() without the terminal's escaping, which lives in the
// program and not in this module.
std::string summary(const Outcome& outcome) {
  switch (outcome.kind) {
    case Outcome::Kind::success:
      return "success";
    case Outcome::Kind::cancelled:
      return "cancelled";
    case Outcome::Kind::failure:
      return "failure " + outcome.type + ": " + outcome.description;
    case Outcome::Kind::error:
      break;
  }
  return "error " + outcome.type + ": " + outcome.description;
}

class WindowStage final : public AttemptStage {
 public:
  explicit WindowStage(WindowSettings settings) : settings_(std::move(settings)) {}

  ~WindowStage() override {
    if (loop_) g_main_loop_unref(loop_);
  }

  void prepare(Platform& bundle) override {
    queue_ = std::make_shared<gtk::GlibMainQueue>();
    bundle.mainQueue = queue_;
    bundle.ui = gtk::makeGtkViewToolkit(settings_.screens.has_value());
    if (settings_.portalCamera) bundle.camera = gtk::makePortalCameraAuthorization();
  }

  std::shared_ptr<CaptureVendor> showCapture(std::shared_ptr<CaptureVendor> vendor) override {
    return gtk::withCaptureScreen(std::move(vendor));
  }

  void run(std::function<void()> start) override {
    start_ = std::move(start);
    loop_ = g_main_loop_new(nullptr, FALSE);
    queue_->post([this] { openWindow(); });
    g_main_loop_run(loop_);
    if (window_) gtk_window_destroy(window_);
    window_ = nullptr;
    // Let GTK finish with the window before the controllers go.
    while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
  }

  void stop() override {
    // The last screenshot first, if one is still waiting for its frame.
    if (!pendingShots_.empty()) {
      stopWhenShot_ = true;
      return;
    }
    g_main_loop_quit(loop_);
  }

  std::shared_ptr<ViewController> hostController() override { return host_; }

  void loading(bool on) override {
    if (on) shoot("loading");
  }

  void vendorStatus(const Status& status) override {
    if (settings_.everyStatus) {
      shoot("capture-" + std::string(status.name()));
    } else if (const auto* processing = status.as<Status::processing>(); processing && processing->progress == 0.5) {
      shoot("capture");
    }
  }

  void finished(const Outcome& outcome) override {
    const bool ok = outcome.kind == Outcome::Kind::success;
    gtk_label_set_text(result_, ok ? "✓ Verified. Welcome back." : ("✗ " + summary(outcome)).c_str());
    gtk_widget_add_css_class(GTK_WIDGET(result_), ok ? "success" : "error");
    gtk_widget_set_sensitive(button_, FALSE);
    // After the vendor's screen went down.
    queue_->postAfter(kOutcomeShotSeconds, [this] { shoot("outcome"); });
    if (settings_.gif) queue_->postAfter(kOverlayShotSeconds, [this] { showGifOverlay(); });
  }

  double lingerSeconds() const override {
    return settings_.screens ? kOverlayShotSeconds + 0.3 : settings_.lingerSeconds;  // the last shot first
  }

  const std::vector<std::filesystem::path>& written() const { return written_; }

 private:
  void openWindow() {
    window_ = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(window_, "Acme Bank");
    gtk_window_set_default_size(window_, kWindowWidth, kWindowHeight);
    gtk_window_set_resizable(window_, FALSE);
    g_signal_connect(window_, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer data) -> gboolean {
                       g_main_loop_quit(static_cast<WindowStage*>(data)->loop_);
                       return FALSE;
                     }),
                     this);
    host_ = gtk::makeWindowController(window_);
    gtk::setContentWidget(host_->view(), hostPage());
    gtk_window_present(window_);
    queue_->postAfter(kHostShotSeconds, [this] { shoot("host"); });
    if (settings_.screens || settings_.autoStart) {
      queue_->postAfter(kAutoStartSeconds, [this] { startAttempt(); });
    }
  }

  // What the host application shows: its own widgets, unknown to the SDK.
  GtkWidget* hostPage() {
    auto* css = gtk_css_provider_new();
    gtk_css_provider_load_from_data(css,
                                    ".page { background: #f4f6fb; padding: 0 28px; }"
                                    ".brand { font-size: 26px; font-weight: bold; color: #1d3557; }"
                                    ".success { color: #1b7f3b; font-weight: bold; }"
                                    ".error { color: #b3261e; font-weight: bold; }",
                                    -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(css),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(css);
    GtkWidget* page = gtk_box_new(GTK_ORIENTATION_VERTICAL, 18);
    gtk_widget_add_css_class(page, "page");
    GtkWidget* brand = gtk_label_new("Acme Bank");
    gtk_widget_add_css_class(brand, "brand");
    gtk_widget_set_margin_top(brand, 96);
    GtkWidget* text = gtk_label_new("Before you move money, confirm it is really you with a quick selfie check.");
    gtk_label_set_wrap(GTK_LABEL(text), TRUE);
    gtk_label_set_justify(GTK_LABEL(text), GTK_JUSTIFY_CENTER);
    button_ = gtk_button_new_with_label("Verify with a selfie");
    gtk_widget_add_css_class(button_, "suggested-action");
    gtk_widget_set_margin_top(button_, 24);
    g_signal_connect(button_, "clicked",
                     G_CALLBACK(+[](GtkButton*, gpointer data) { static_cast<WindowStage*>(data)->startAttempt(); }),
                     this);
    result_ = GTK_LABEL(gtk_label_new(""));
    gtk_label_set_wrap(result_, TRUE);
    gtk_label_set_justify(result_, GTK_JUSTIFY_CENTER);
    for (GtkWidget* child : {brand, text, button_, GTK_WIDGET(result_)}) gtk_box_append(GTK_BOX(page), child);
    return page;
  }

  // The host's own animation in the SDK's GIF overlay, over its page.
  void showGifOverlay() {
    overlay_ = KivGifOverlayView::make(host_->view()->bounds());
    overlay_->imageView()->setImage(settings_.gif);
    host_->view()->addSubview(overlay_->view());
    shoot("gif-overlay");
  }

  void startAttempt() {
    if (started_) return;
    started_ = true;
    gtk_widget_set_sensitive(button_, FALSE);
    start_();
  }

  // Writes what the window shows once the next frame is drawn.
  void shoot(const std::string& name) {
    if (!settings_.screens || !window_) return;
    pendingShots_.push_back(name);
    GdkFrameClock* clock = gtk_widget_get_frame_clock(GTK_WIDGET(window_));
    if (!clock) return;  // not mapped yet: the first frame takes it
    if (!afterPaint_) {
      afterPaint_ = g_signal_connect(clock, "after-paint", G_CALLBACK(+[](GdkFrameClock*, gpointer data) {
                                       static_cast<WindowStage*>(data)->takePendingShots();
                                     }),
                                     this);
      frameClock_ = clock;
    }
    gtk_widget_queue_draw(gtk::windowContentWidget(host_));
  }

  void takePendingShots() {
    while (!pendingShots_.empty()) {
      write(pendingShots_.front());
      pendingShots_.pop_front();
    }
    if (stopWhenShot_) {
      stopWhenShot_ = false;
      queue_->post([this] { stop(); });
    }
  }

  void write(const std::string& name) {
    if (!settings_.screens) return;
    auto file = *settings_.screens / (name + ".png");
    if (gtk::saveWidgetPng(gtk::windowContentWidget(host_), file)) {
      written_.push_back(file);
    } else {
      std::cerr << "kivfll: could not write " << file.string() << "\n";
    }
  }

  const WindowSettings settings_;
  std::shared_ptr<gtk::GlibMainQueue> queue_;
  GMainLoop* loop_ = nullptr;
  std::function<void()> start_;
  GtkWindow* window_ = nullptr;
  std::shared_ptr<ViewController> host_;
  std::shared_ptr<KivGifOverlayView> overlay_;
  GtkWidget* button_ = nullptr;
  GtkLabel* result_ = nullptr;
  bool started_ = false;
  std::deque<std::string> pendingShots_;
  GdkFrameClock* frameClock_ = nullptr;
  gulong afterPaint_ = 0;
  bool stopWhenShot_ = false;
  std::vector<std::filesystem::path> written_;
};

}  // namespace kiv::cli

using kiv::cli::AttemptStage;
using kiv::cli::WindowStage;

std::expected<std::shared_ptr<AttemptStage>, std::string> kivfll_window_open(kiv::cli::WindowSettings settings) {
  // Software drawing: the same pixels on every machine, and no GPU needed
  // (a virtual X server has none). A host may still choose another renderer.
  setenv("GSK_RENDERER", "cairo", 0);
  // Without a session bus GTK would try to start one for accessibility, and
  // say on standard error that it could not.
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS")) setenv("GTK_A11Y", "none", 0);
  if (!gtk_init_check())
    return std::unexpected("cannot open a window: no display (set DISPLAY, or run under xvfb-run)");
  return std::make_shared<WindowStage>(std::move(settings));
}

std::vector<std::filesystem::path> kivfll_window_written(const AttemptStage& stage) {
  const auto* window = dynamic_cast<const WindowStage*>(&stage);
  return window ? window->written() : std::vector<std::filesystem::path>{};
}
