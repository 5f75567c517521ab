#include "kiv/platform/gtk/gtk_view_toolkit.hpp"

#include <gtk/gtk.h>

#include <algorithm>

#include "kiv/platform/platform.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "platform/gtk/gtk_view.hpp"
#include "platform/ui/fontconfig_font_lookup.hpp"
#include "platform/ui/headless_view_controller.hpp"
#include "platform/ui/headless_view_toolkit.hpp"

namespace kiv::gtk {
namespace {

// What a window (or a modal sheet) shows: the views placed on it, each
// filling it, later ones on top.
class Stage final : public WidgetPeer {
 public:
  explicit Stage(GtkWindow* window) : widget_(makeViewWidget(this)) { gtk_window_set_child(window, widget_); }
  ~Stage() override { detachPeer(widget_); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  GtkWidget* widget() const { return widget_; }

  void show(const std::shared_ptr<View>& view) {
    auto* part = gtkPart(view.get());
    if (!part) return;
    if (gtk_widget_get_parent(part->widget())) gtk_widget_unparent(part->widget());
    gtk_widget_insert_before(part->widget(), widget_, nullptr);
    views_.push_back(view);
    gtk_widget_queue_allocate(widget_);
  }

  void hide(const View* view) {
    auto* part = gtkPart(const_cast<View*>(view));
    if (part && gtk_widget_get_parent(part->widget()) == widget_) gtk_widget_unparent(part->widget());
    std::erase_if(views_, [&](const auto& weak) { return weak.expired() || weak.lock().get() == view; });
  }

  void allocate(int width, int height) override {
    for (const auto& weak : views_) {
      auto view = weak.lock();
      auto* part = view ? gtkPart(view.get()) : nullptr;
      if (!part) continue;
      view->setFrame(Rect::make(0, 0, width, height));  // a no-op unless the window changed size
      if (gtk_widget_get_visible(part->widget())) gtk_widget_allocate(part->widget(), width, height, -1, nullptr);
    }
  }
  void snapshotContent(GtkSnapshot*, int, int) override {}

  static Stage* of(GtkWidget* widget) {
    for (; widget; widget = gtk_widget_get_parent(widget)) {
      if (auto* stage = dynamic_cast<Stage*>(peerOf(widget))) return stage;
    }
    return nullptr;
  }

 private:
  GtkWidget* widget_;  // owned by the window
  std::vector<std::weak_ptr<View>> views_;
};

bool coversScreen(ModalPresentationStyle style) {
  return style == ModalPresentationStyle::fullScreen || style == ModalPresentationStyle::overFullScreen;
}

class GtkViewController final : public HeadlessViewController {
 public:
  explicit GtkViewController(std::shared_ptr<View> view) : HeadlessViewController(std::move(view)) {}

  ~GtkViewController() override {
    if (shownOn_) shownOn_->hide(view().get());
    closeSheet();
  }

  // Makes this controller the root of `window`.
  void attach(GtkWindow* window) {
    root_ = std::make_unique<Stage>(window);
    root_->show(view());
  }

  GtkWidget* rootWidget() const { return root_ ? root_->widget() : nullptr; }

 protected:
  void didPresent(HeadlessViewController& presenter) override {
    auto* presenterPart = gtkPart(presenter.view().get());
    if (!presenterPart) return;
    if (coversScreen(modalPresentationStyle())) {
      shownOn_ = Stage::of(presenterPart->widget());
      if (shownOn_) shownOn_->show(view());
      return;
    }
    openSheet(GTK_WINDOW(gtk_widget_get_root(presenterPart->widget())));
  }

  void didDismiss() override {
    if (shownOn_) shownOn_->hide(view().get());
    shownOn_ = nullptr;
    closeSheet();
  }

 private:
  void openSheet(GtkWindow* parent) {
    sheet_ = GTK_WINDOW(gtk_window_new());
    g_object_ref(sheet_);
    if (parent) gtk_window_set_transient_for(sheet_, parent);
    gtk_window_set_modal(sheet_, TRUE);
    const Rect frame = view()->frame();
    gtk_window_set_default_size(sheet_, frame.size.width > 0 ? static_cast<int>(frame.size.width) : 390,
                                frame.size.height > 0 ? static_cast<int>(frame.size.height) : 600);
    sheetStage_ = std::make_unique<Stage>(sheet_);
    sheetStage_->show(view());
    // Closing the window is the person dismissing the sheet.
    closeHandler_ = g_signal_connect(sheet_, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer data) -> gboolean {
                                       static_cast<GtkViewController*>(data)->dismiss(false, {});
                                       return TRUE;
                                     }),
                                     this);
    gtk_window_present(sheet_);
  }

  void closeSheet() {
    if (!sheet_) return;
    g_signal_handler_disconnect(sheet_, closeHandler_);
    sheetStage_->hide(view().get());
    sheetStage_.reset();
    gtk_window_destroy(sheet_);
    g_object_unref(sheet_);
    sheet_ = nullptr;
  }

  std::unique_ptr<Stage> root_;  // when this controller is a window's root
  Stage* shownOn_ = nullptr;     // the stage it covers while presented full screen
  GtkWindow* sheet_ = nullptr;   // its own window while presented as a sheet
  std::unique_ptr<Stage> sheetStage_;
  gulong closeHandler_ = 0;
};

class GtkViewToolkit final : public ViewToolkit {
 public:
  explicit GtkViewToolkit(bool frozen)
      : fonts_(std::make_shared<FontconfigFontLookup>()), clock_(std::make_shared<AnimationClock>(frozen)) {}

  std::shared_ptr<View> makeView(Rect frame) override {
    KIV_ASSERT_MAIN_THREAD();
    return std::make_shared<GtkPlainView>(frame, clock_);
  }
  std::shared_ptr<ImageView> makeImageView(ImageRef image) override {
    KIV_ASSERT_MAIN_THREAD();
    return std::make_shared<GtkImageView>(std::move(image), clock_);
  }
  std::shared_ptr<ActivityIndicatorView> makeActivityIndicator(ActivityIndicatorStyle style) override {
    KIV_ASSERT_MAIN_THREAD();
    return std::make_shared<GtkActivityIndicatorView>(style, clock_);
  }
  std::shared_ptr<ViewController> makeViewController() override {
    KIV_ASSERT_MAIN_THREAD();
    return std::make_shared<GtkViewController>(makeView(Rect{}));
  }

  const FontLookup& fonts() const override { return *fonts_; }
  std::optional<Font> font(std::string_view name, double pointSize) const override {
    auto face = fonts_->face(name);
    if (!face) return std::nullopt;
    return Font{std::move(face->family), pointSize, std::move(face->style)};
  }
  double systemFontSize() const override { return HeadlessViewToolkit::kSystemFontSize; }

  const std::shared_ptr<const AnimationClock>& clock() const { return clock_; }

 private:
  std::shared_ptr<const FontLookup> fonts_;
  std::shared_ptr<const AnimationClock> clock_;
};

}  // namespace

std::shared_ptr<ViewToolkit> makeGtkViewToolkit(bool frozenAnimations) {
  return std::make_shared<GtkViewToolkit>(frozenAnimations);
}

std::shared_ptr<const AnimationClock> animationClock() {
  auto* toolkit = dynamic_cast<GtkViewToolkit*>(platform()->ui.get());
  return toolkit ? toolkit->clock() : nullptr;
}

std::shared_ptr<ViewController> makeWindowController(GtkWindow* window) {
  KIV_ASSERT_MAIN_THREAD();
  auto controller = std::dynamic_pointer_cast<GtkViewController>(platform()->ui->makeViewController());
  if (!controller) return nullptr;
  controller->attach(window);
  return controller;
}

GtkWidget* windowContentWidget(const std::shared_ptr<ViewController>& controller) {
  auto* gtkController = dynamic_cast<GtkViewController*>(controller.get());
  return gtkController ? gtkController->rootWidget() : nullptr;
}

bool setContentWidget(const std::shared_ptr<View>& view, GtkWidget* widget) {
  auto* part = gtkPart(view.get());
  if (!part) return false;
  part->setContent(widget);
  return true;
}

bool saveWidgetPng(GtkWidget* widget, const std::filesystem::path& file) {
  KIV_ASSERT_MAIN_THREAD();
  GtkNative* native = widget ? gtk_widget_get_native(widget) : nullptr;
  GskRenderer* renderer = native ? gtk_native_get_renderer(native) : nullptr;
  const int width = widget ? gtk_widget_get_width(widget) : 0, height = widget ? gtk_widget_get_height(widget) : 0;
  if (!renderer || width <= 0 || height <= 0) return false;
  GdkPaintable* paintable = gtk_widget_paintable_new(widget);
  GtkSnapshot* snapshot = gtk_snapshot_new();
  gdk_paintable_snapshot(paintable, GDK_SNAPSHOT(snapshot), width, height);
  GskRenderNode* node = gtk_snapshot_free_to_node(snapshot);
  g_object_unref(paintable);
  if (!node) return false;
  auto bounds = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  GdkTexture* texture = gsk_renderer_render_texture(renderer, node, &bounds);
  gsk_render_node_unref(node);
  const bool saved = gdk_texture_save_to_png(texture, file.c_str());
  g_object_unref(texture);
  return saved;
}

}  // namespace kiv::gtk
