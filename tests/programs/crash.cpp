// A host that installs the crash handler and then crashes on command.
//
//   kivfll_crash <store directory> <how> <sender> <store>
//
// <how>: segv, abort, trap, divide, overflow, threads, exception,
// exception-without-message, raise-<signal number> (raised on the main
// thread; raised again should the first return), raise-once-<signal number>
// (raised once on the main thread, which then keeps running its main loop),
// raise-off-main-<signal number> (raised once on another thread while the
// main thread is blocked), twice-<how> (the handler installed twice, then
// <how>), uninstall (installed, uninstalled, exit 0). <sender>: none (no
// analytics client), never (a client whose post never answers),
// post-to=<backend root URL> (the real analytics client posting there, the
// network path reported unusable so that only the crash report is posted; it
// first prints "queue <secure-store service of the offline queue>").
// <store>: disk (the Linux store in the directory), unusable (a store that
// cannot be opened; crash slots still go to the directory).
//
// Before crashing it prints "crashing <monotonic nanoseconds>" on standard
// output, so that the test can time signal to exit. It exits 90 and up when
// something other than the expected end happened.
#include <time.h>
#include <unistd.h>

#include <barrier>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kiv/backend.hpp"
#include "kiv/platform/crash.hpp"
#include "kiv/platform/main_loop.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/secure_store.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"
#include "telemetry/bff_analytics.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/crash_report_sender.hpp"

struct CrashWithoutMessage {};

namespace {

void announce() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("crashing %lld\n", static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
  std::fflush(stdout);
}

volatile int gZero = 0;
volatile int gSeven = 7;
int* volatile gNull = nullptr;

// Real faults, even in sanitizer builds: the undefined-behaviour sanitizer
// would stop the program just before the CPU faults, and the thread
// sanitizer would report twenty threads writing to one address as a race.
[[gnu::noinline, gnu::no_sanitize("undefined", "thread")]] void writeNull() { *gNull = 1; }
[[gnu::noinline, gnu::no_sanitize("undefined")]] int divideByZero() { return gSeven / gZero; }

// Deep enough to overflow any stack; the depth check only hides the
// recursion from the compiler.
[[gnu::noinline]] int recurse(int depth) {
  volatile char frame[512];
  frame[0] = static_cast<char>(depth);
  if (depth == -1) return 0;
  return recurse(depth + 1) + frame[0];
}

void crash(const std::string& how) {
  announce();
  if (how == "segv") {
    writeNull();
  } else if (how == "abort") {
    std::abort();
  } else if (how == "trap") {
    __builtin_trap();
  } else if (how == "divide") {
    std::printf("%d\n", divideByZero());
  } else if (how == "overflow") {
    std::printf("%d\n", recurse(0));
  } else if (how == "exception") {
    throw std::runtime_error("boom");
  } else if (how == "exception-without-message") {
    throw CrashWithoutMessage{};
  } else if (how == "threads") {
    constexpr int kThreads = 20;
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&start] {
        start.arrive_and_wait();
        writeNull();
      });
    }
    for (auto& t : threads) t.join();
  } else if (how.starts_with("raise-once-")) {
    raise(std::stoi(how.substr(11)));
    return;  // back to the main loop, which runs what the crash scheduled
  } else if (how.starts_with("raise-off-main-")) {
    std::thread([signal = std::stoi(how.substr(15))] { raise(signal); }).detach();
    pause();  // a main thread that never comes back to its loop
  } else if (how.starts_with("raise-")) {
    raise(std::stoi(how.substr(6)));
    raise(std::stoi(how.substr(6)));  // the handlers are back: this one ends the process
  } else {
    std::_Exit(91);
  }
  std::_Exit(92);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 90;
  const std::string directory = argv[1], how = argv[2], sender = argv[3], store = argv[4];

  // The Linux services, with the store and its crash slots in `directory`.
  auto bundle = kiv::makeLinuxPlatform();
  if (store == "unusable") {
    // Below a regular file: the store's directory can never be made.
    const std::string blocker = directory + "/not-a-directory";
    if (FILE* file = std::fopen(blocker.c_str(), "w")) std::fclose(file);
    bundle.secureStore = kiv::makeLinuxSecureStore(blocker + "/store");
  } else {
    bundle.secureStore = kiv::makeLinuxSecureStore(directory);
  }
  bundle.crash = kiv::makeLinuxCrashPrimitives(directory);
  const bool posting = sender.starts_with("post-to=");
  if (posting) {
    bundle.pathMonitor = std::make_shared<kiv::FakePathMonitorFactory>(kiv::NetworkPathStatus::unsatisfied);
  }
  kiv::installPlatform(bundle);
  if (posting) {
    if (!kiv::setBackendRootURL(kiv::KivEnvironment::dev, sender.substr(8))) return 96;
    kiv::KivBFFAnalytics::configure({.sessionId = "crash-session",
                                     .stage = kiv::KivAnalyticsStage::dev,
                                     .clientId = "acme",
                                     .mobileToken = "token-1",
                                     .sdk = {"KivFaceLivenessLite", "3.2.1"}});
    std::printf("queue %s\n", kiv::KivBFFAnalytics::shared()->storageNamespace().c_str());
  }
  if (sender == "never") {
    kiv::setCrashReportSender(
        [](const kiv::CrashRecord&, std::string, kiv::CrashReportResult, kiv::CrashReportCompletion) { return true; });
  }

  auto handler = kiv::KivCrashHandler::shared();
  if (!handler) return 93;
  const bool twice = how.starts_with("twice-");
  handler->install("kiv.sdk.service", true);
  if (twice) handler->install("kiv.sdk.service", true);
  kiv::platform()->taskPool->waitIdle();  // the startup resend has nothing to do here
  if (how == "uninstall") {
    handler->uninstall();
    return 0;
  }

  auto loop = std::dynamic_pointer_cast<kiv::MainLoop>(kiv::platform()->mainQueue);
  if (!loop) return 94;
  loop->post([what = twice ? how.substr(6) : how] { crash(what); });
  loop->run();
  return 95;
}
