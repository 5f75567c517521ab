#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "gtk/gtk_support.hpp"
#include "kiv/testing/simulated_capture_vendor.hpp"
#include "kiv/platform/gtk/capture_screen.hpp"
#include "kiv/platform/gtk/glib_main_queue.hpp"
#include "kiv/platform/gtk/gtk_view_toolkit.hpp"
#include "kiv/platform/gtk/portal_camera_authorization.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/gtk/gtk_view.hpp"
#include "platform/view_toolkit_contract.hpp"
#include "support/child_process.hpp"

namespace kiv::testing {

bool runUntil(const std::function<bool()>& done) {
  bool expired = false;
  const guint watchdog = g_timeout_add_seconds(
      20,
      [](gpointer flag) {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_REMOVE;
      },
      &expired);
  while (!done() && !expired) g_main_context_iteration(nullptr, TRUE);
  if (!expired) g_source_remove(watchdog);
  return !expired;
}

bool drawFrame(GtkWidget* widget) {
  GdkFrameClock* clock = gtk_widget_get_frame_clock(widget);
  if (!clock && !runUntil([&] { return (clock = gtk_widget_get_frame_clock(widget)) != nullptr; })) return false;
  bool painted = false;
  const gulong handler =
      g_signal_connect(clock, "after-paint",
                       G_CALLBACK(+[](GdkFrameClock*, gpointer flag) { *static_cast<bool*>(flag) = true; }), &painted);
  gtk_widget_queue_draw(widget);
  const bool drawn = runUntil([&] { return painted; });
  g_signal_handler_disconnect(clock, handler);
  return drawn;
}

GtkPlatform::GtkPlatform() {
  platform_.bundle().mainQueue = std::make_shared<gtk::GlibMainQueue>();
  platform_.bundle().ui = gtk::makeGtkViewToolkit(/*frozenAnimations=*/true);
  platform_.install();
  window_ = GTK_WINDOW(gtk_window_new());
  gtk_window_set_default_size(window_, 360, 640);
  root_ = gtk::makeWindowController(window_);
  gtk_window_present(window_);
}

GtkPlatform::~GtkPlatform() {
  root_.reset();
  gtk_window_destroy(window_);
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
}

namespace {

// --- The views' contract, and that the widgets show the tree

class GtkHarness final : public ToolkitHarness {
 public:
  ViewToolkit& ui() override { return *platform()->ui; }

  // The widgets of `view`'s subtree sit where the tree says, in its order,
  // and hidden views are not shown.
  void expectShown(View& view) override {
    auto* part = gtk::gtkPart(&view);
    ASSERT_NE(part, nullptr);
    const bool lent = gtk_widget_get_parent(part->widget()) == nullptr;
    if (lent) gtk::setContentWidget(gtk_.root()->view(), part->widget());
    ASSERT_TRUE(drawFrame(GTK_WIDGET(gtk_.window())));
    expectTree(view);
    if (lent) gtk::setContentWidget(gtk_.root()->view(), nullptr);
  }

 private:
  static void expectTree(View& view) {
    GtkWidget* parent = gtk::gtkPart(&view)->widget();
    GtkWidget* previous = nullptr;
    for (const auto& subview : view.subviews()) {
      GtkWidget* widget = gtk::gtkPart(subview.get())->widget();
      EXPECT_EQ(gtk_widget_get_parent(widget), parent);
      if (previous) {
        EXPECT_EQ(gtk_widget_get_prev_sibling(widget), previous) << "drawn in subview order";
      }
      previous = widget;
      EXPECT_EQ(gtk_widget_get_visible(widget), !subview->isHidden());
      if (subview->isHidden()) continue;
      graphene_rect_t bounds;
      ASSERT_TRUE(gtk_widget_compute_bounds(widget, parent, &bounds));
      EXPECT_EQ(Rect::make(bounds.origin.x, bounds.origin.y, bounds.size.width, bounds.size.height), subview->frame());
      expectTree(*subview);
    }
  }

  GtkPlatform gtk_;
};

INSTANTIATE_TEST_SUITE_P(Gtk, ViewToolkitContract,
                         ::testing::Values(ToolkitUnderTest{"gtk", [] { return std::make_unique<GtkHarness>(); }}));

// --- The GLib main queue

TEST(GlibMainQueueTest, RunsPostsInOrderAndDropsCancelledTasksWithWhatTheyHeld) {
  auto queue = std::make_unique<gtk::GlibMainQueue>();
  EXPECT_TRUE(queue->isCurrent());
  std::thread([&] { EXPECT_FALSE(queue->isCurrent()); }).join();

  std::vector<int> ran;
  queue->post([&] {
    ran.push_back(1);
    queue->post([&] { ran.push_back(4); });
  });
  std::thread([&] { queue->post([&] { ran.push_back(2); }); }).join();
  queue->post([&] { ran.push_back(3); });
  auto held = std::make_shared<int>(0);
  std::weak_ptr<int> weakHeld = held;
  const int owner = 0;
  queue->postAfter(
      0, [&, held] { ran.push_back(-1); }, &owner);
  queue->postAfter(0, [&] { ran.push_back(-2); }).cancel();
  queue->postAfter(0.001, [&] { ran.push_back(5); });
  held.reset();
  queue->cancelAll(&owner);
  EXPECT_TRUE(weakHeld.expired()) << "cancelAll releases what the task captured";
  ASSERT_TRUE(runUntil([&] { return ran.size() >= 5; }));
  // The timer may fire between posts; the posts keep their order.
  std::erase(ran, 5);
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3, 4}));

  queue->post([&] { ran.push_back(6); });
  queue->postAfter(0, [&] { ran.push_back(7); });
  queue.reset();  // a queue that is gone runs nothing more
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
  EXPECT_EQ(ran.size(), 4u);
}

// --- The capture screen

// Presents over the window's root controller, as the SDK's presenter does.
class RootPresenter final : public IProovPresentationDelegate {
 public:
  explicit RootPresenter(std::shared_ptr<ViewController> root) : root_(std::move(root)) {}
  void present(std::shared_ptr<ViewController> controller, Task completion) override {
    controller->setModalPresentationStyle(ModalPresentationStyle::fullScreen);
    root_->present(std::move(controller), false, std::move(completion));
  }
  void dismiss(std::shared_ptr<ViewController> controller, Task completion) override {
    ++dismissals;
    controller->dismiss(false, std::move(completion));
  }
  int dismissals = 0;

 private:
  std::shared_ptr<ViewController> root_;
};

GtkWidget* findButton(GtkWidget* widget) {
  if (GTK_IS_BUTTON(widget)) return widget;
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
    if (GtkWidget* found = findButton(child)) return found;
  }
  return nullptr;
}

TEST(CaptureScreenTest, CloseCancelsAsThePersonOnceAndTakesTheScreenDown) {
  GtkPlatform gtk;
  auto vendor = gtk::withCaptureScreen(
      std::make_shared<SimulatedCaptureVendor>(*CaptureScript::parse("connected; wait 30; success")));
  auto presenter = std::make_shared<RootPresenter>(gtk.root());
  Options options;
  options.presentationDelegate = presenter;
  std::vector<std::string> heard;
  std::optional<Canceler> canceler;
  auto run = vendor->launch("wss://capture.example/ws", "token", options, [&](const Status& status) {
    heard.emplace_back(status.name());
    if (auto canceled = status.as<Status::canceled>()) canceler = canceled->canceler;
  });
  ASSERT_TRUE(runUntil([&] { return !heard.empty(); }));
  auto screen = gtk.root()->presentedViewController();
  ASSERT_NE(screen, nullptr);
  ASSERT_TRUE(drawFrame(GTK_WIDGET(gtk.window())));
  GtkWidget* close = findButton(gtk::gtkPart(screen->view().get())->widget());
  ASSERT_NE(close, nullptr);

  g_signal_emit_by_name(close, "clicked");
  g_signal_emit_by_name(close, "clicked");
  EXPECT_EQ(heard, (std::vector<std::string>{"connected", "canceled"}));
  EXPECT_EQ(canceler, Canceler::user);
  ASSERT_TRUE(runUntil([&] { return gtk.root()->presentedViewController() == nullptr; }));
  EXPECT_EQ(presenter->dismissals, 1);
  EXPECT_EQ(heard.size(), 2u) << "the script's success never comes after the person closed";
}

// --- The desktop camera prompt

// A kiosk has no session bus or portal: the video devices decide, as they do
// for the headless bundle.
TEST(PortalCameraTest, WithoutAPortalTheVideoDevicesDecide) {
  TestPlatform platform;
  TemporaryDirectory devices;
  auto camera = gtk::makePortalCameraAuthorization(nullptr, devices.path());
  EXPECT_EQ(camera->status(), CameraAuthorizationStatus::restricted);
  std::atomic<int> answer{-1};
  camera->requestAccess([&](bool granted) {
    answer = granted;
    g_main_context_wakeup(nullptr);
  });
  ASSERT_TRUE(runUntil([&] { return answer >= 0; }));
  EXPECT_EQ(answer, 0);
}

}  // namespace
}  // namespace kiv::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // Software drawing, as kivfll's windows, so the pixels are the same on
  // every machine; no accessibility bus under a virtual X server.
  setenv("GSK_RENDERER", "cairo", 1);
  setenv("GTK_A11Y", "none", 1);
  if (!gtk_init_check()) {
    std::fprintf(stderr, "no display: run under xvfb-run\n");
    return 1;
  }
  g_main_context_acquire(nullptr);  // this thread is the main thread
  return RUN_ALL_TESTS();
}
