#include "support/test_platform.hpp"

#include "platform/dispatch/manual_task_pool.hpp"
#include "platform/dispatch/thread_task_pool.hpp"
#include "platform/process_state.hpp"
#include "support/test_services.hpp"
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
  addTestServices(bundle_);
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
