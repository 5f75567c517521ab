#include "support/test_platform.hpp"

#include "base/process_state.hpp"
#include "kiv/platform/notification_center.hpp"
#include "platform/defaults/memory_user_defaults.hpp"
#include "platform/dispatch/manual_task_pool.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "platform/http/curl_http_session.hpp"
#include "platform/ui/fake_font_lookup.hpp"
#include "platform/ui/headless_view_toolkit.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv::testing {

TestPlatform::TestPlatform(Pool kind)
    : clock(std::make_shared<FakeClock>()),
      loop(std::make_shared<ManualMainLoop>(clock)),
      console(std::make_shared<CapturingConsole>()) {
  if (kind == Pool::manual) {
    pool = std::make_shared<ManualTaskPool>(loop);
  } else {
    pool = std::make_shared<ThreadTaskPool>(4);
  }
  process_state::resetAll();
  bundle_.mainQueue = loop;
  bundle_.clock = clock;
  bundle_.taskPool = pool;
  bundle_.console = console;
  // The deterministic fake of every other service, one line each.
  bundle_.secureStore = store;
  bundle_.defaults = std::make_shared<MemoryUserDefaults>();
  bundle_.device = device;
  bundle_.http = std::make_shared<CurlHttpSessionFactory>();  // wire tests talk to a RecordingHttpServer
  bundle_.pathMonitor = network;                              // offline until a test flips it
  bundle_.ui =
      std::make_shared<HeadlessViewToolkit>(std::make_shared<FakeFontLookup>(FakeFontLookup::Families{"Avenir Next"}));
  capture->keepLaunches(true);
  bundle_.capture = capture;
  bundle_.crash = crash;
  bundle_.integrity = integrity;  // clean until a test says otherwise
  bundle_.camera = camera;        // authorized until a test says otherwise
  bundle_.notifications = makeMainQueueNotificationCenter();
  install();
}

TestPlatform::~TestPlatform() {
  // Analytics posts end on the HTTP session's thread, after the pool let go
  // of them; none may outlive the bundle they write to.
  pool->waitIdle();
  if (auto analytics = KivBFFAnalytics::shared()) analytics->waitForPendingPosts();
  process_state::resetAll();  // also uninstalls this bundle
}

void TestPlatform::install() { installPlatform(bundle_); }

}  // namespace kiv::testing
