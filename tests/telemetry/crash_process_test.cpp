// Real crashes: a child process installs the crash handler and crashes on
// command; this process then plays the next run of the host, installing over
// the same store directory, and sees the record resent and removed.
//
// The crash matrix (slow): every handled signal, an uncaught exception with and
// without a message, a stack overflow and twenty threads faulting at once,
// each crashed many times in a child process that installed the crash handler
// once, with the analytics backend unreachable and with it answering. Every
// run must end by itself and send exactly one report: posted when the
// backend answers, queued for a later post when it cannot be reached, never
// two. The store keeps nothing behind for a signal; an exception record,
// which has no stack trace to be found by once posted, stays stored and is
// resent by the next run.
//
// KIV_RELIABILITY_RUNS=n crashes each case n times (default 5).
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/bff_analytics.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/crash_logs_manager.hpp"
#include "telemetry/crash_report_sender.hpp"

namespace kiv {
namespace {

constexpr double kChildBound = 10.0;  // far beyond any crash path: reaching it is a hang

// __builtin_trap is ud2 on x86 (an illegal instruction) and brk on Arm (a breakpoint).
#if defined(__aarch64__)
constexpr int kTrapSignal = SIGTRAP;
#else
constexpr int kTrapSignal = SIGILL;
#endif

using testing::ChildEnd;

struct ProcessCase {
  std::string label;
  std::string how;
  std::string sender;
  std::string store;
  int endSignal;     // how the child ends outside sanitizers
  int recordSignal;  // 0: an exception record
  std::string name;
  std::string reason;
};

void PrintTo(const ProcessCase& c, std::ostream* out) { *out << c.label; }

class CrashProcessTest : public testing::PlatformTest, public ::testing::WithParamInterface<ProcessCase> {
 protected:
  // The next run of the host: the Linux store and slots over the directory.
  void becomeTheNextRun() {
    testPlatform().bundle().secureStore = makeLinuxSecureStore(scratch.path());
    testPlatform().bundle().crash = makeLinuxCrashPrimitives(scratch.path());
    testPlatform().install();
    KivCrashLogsManager::setServiceName(std::string(kKivSDKService));
  }

  // Records in the store, plus records in slots left behind.
  std::vector<CrashRecord> recordsLeft() {
    KivCrashLogsManager logs{KivKeyChainManager::shared()};
    auto records = logs.getCrashLogs().value_or(std::vector<CrashRecord>{});
    for (const auto& slot : platform()->crash->leftCrashSlots()) {
      if (auto record = json::parse(slot->read()); record && record->is_object()) records.push_back(*record);
    }
    return records;
  }

  testing::TemporaryDirectory scratch;
};

TEST_P(CrashProcessTest, TheCrashEndsTheProcessAndIsResentByTheNextRun) {
  const auto& c = GetParam();
  const ChildEnd end = testing::runToEnd(testing::programPath("crash"),
                                         {scratch.path().string(), c.how, c.sender, c.store}, kChildBound);
  ASSERT_FALSE(end.hung) << "the crashed child did not end";
  ASSERT_EQ(end.output.rfind("crashing ", 0), 0u) << "no crash announced";
  if (testing::kSanitized) {
    EXPECT_TRUE(testing::endedAsCrash(end)) << "exit code " << end.exitCode << "\n" << end.errors;
  } else {
    EXPECT_EQ(end.exitSignal, c.endSignal) << "exit code " << end.exitCode << "\n" << end.errors;
  }

  becomeTheNextRun();
  const auto left = recordsLeft();
  ASSERT_EQ(left.size(), 1u);
  const CrashRecord& record = left[0];
  EXPECT_TRUE(record["createdAt"].is_string());
  if (c.recordSignal) {
    EXPECT_EQ(record["signal"], c.recordSignal);
    // The unwinding got past the signal frame into the program that crashed.
    EXPECT_NE(record["stackTrace"].get<std::string>().find("/kivfll_crash(+0x"), std::string::npos)
        << record["stackTrace"];
  } else {
    EXPECT_EQ(record["name"], c.name);
    EXPECT_EQ(record["reason"], c.reason);
    EXPECT_EQ(record["userInfo"], Json::object());
    EXPECT_FALSE(record["callStackSymbols"].empty());
  }

  auto sent = std::make_shared<std::vector<std::pair<CrashRecord, CrashReportResult>>>();
  auto sentMutex = std::make_shared<std::mutex>();
  setCrashReportSender([sent, sentMutex](const CrashRecord& r, std::string, CrashReportResult result, auto done) {
    std::unique_lock lock(*sentMutex);
    sent->emplace_back(r, result);
    lock.unlock();
    done(true);
    return true;
  });
  auto handler = KivCrashHandler::shared();
  handler->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  handler->uninstall();

  ASSERT_EQ(sent->size(), 1u);
  EXPECT_EQ((*sent)[0].first["type"], "stored");
  EXPECT_EQ((*sent)[0].second, c.recordSignal ? CrashReportResult::signal : CrashReportResult::exception);
  EXPECT_TRUE(recordsLeft().empty());
}

std::vector<ProcessCase> processCases() {
  const std::string xcpu = std::to_string(SIGXCPU), xfsz = std::to_string(SIGXFSZ);
  // label, how, sender, store, the ending signal, the recorded signal (0: an exception), name, reason
  std::vector<ProcessCase> cases = {
      {"nullWrite", "segv", "none", "disk", SIGSEGV, SIGSEGV, "", ""},
      // Installed twice, the handler puts back the host's handlers, not its own.
      {"nullWriteAfterTwoInstalls", "twice-segv", "none", "disk", SIGSEGV, SIGSEGV, "", ""},
      {"abort", "abort", "none", "disk", SIGABRT, SIGABRT, "", ""},
      {"trap", "trap", "none", "disk", kTrapSignal, kTrapSignal, "", ""},
      {"stackOverflow", "overflow", "none", "disk", SIGSEGV, SIGSEGV, "", ""},
      {"twentyThreads", "threads", "none", "disk", SIGSEGV, SIGSEGV, "", ""},
      {"exception", "exception", "none", "disk", SIGABRT, 0, "std::runtime_error", "boom"},
      {"exceptionWithoutMessage", "exception-without-message", "none", "disk", SIGABRT, 0, "CrashWithoutMessage", ""},
      // A post that never answers: released after the bound all the same.
      {"nullWriteUnansweredPost", "segv", "never", "disk", SIGSEGV, SIGSEGV, "", ""},
      // The main loop runs the abort scheduled for the unfinished post.
      {"raisedOnceUnansweredPost", "raise-once-" + xcpu, "never", "disk", SIGABRT, SIGXCPU, "", ""},
      // The main thread never returns to its loop: the watchdog aborts.
      {"raisedOffMainUnansweredPost", "raise-off-main-" + xfsz, "never", "disk", SIGABRT, SIGXFSZ, "", ""},
      // The store cannot be written: the record survives in the crash slot.
      {"nullWriteStoreUnusable", "segv", "none", "unusable", SIGSEGV, SIGSEGV, "", ""},
  };
#if defined(__x86_64__) || defined(__i386__)
  // Arm's integer division by zero gives 0 and raises nothing.
  cases.push_back({"integerDivision", "divide", "none", "disk", SIGFPE, SIGFPE, "", ""});
#endif
  for (int signal : kCrashSignals) {
    const auto number = std::to_string(signal);
    cases.push_back({"raise" + number, "raise-" + number, "none", "disk", signal, signal, "", ""});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Crashes, CrashProcessTest, ::testing::ValuesIn(processCases()),
                         [](const auto& p) { return p.param.label; });

TEST(CrashSlotFiles, AProcessThatUninstallsLeavesNoSlotBehind) {
  testing::TemporaryDirectory scratch;
  const ChildEnd end = testing::runToEnd(testing::programPath("crash"),
                                         {scratch.path().string(), "uninstall", "none", "disk"}, kChildBound);
  ASSERT_FALSE(end.hung);
  ASSERT_EQ(end.exitCode, 0) << end.errors;
  std::vector<std::string> slots;
  for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
    if (entry.path().filename().string().starts_with("crash-")) slots.push_back(entry.path().filename().string());
  }
  EXPECT_TRUE(slots.empty()) << slots.front();
}

int reliabilityRuns() {
  const char* runs = std::getenv("KIV_RELIABILITY_RUNS");
  return runs ? std::max(1, std::atoi(runs)) : 5;
}

// The value after `prefix` at the start of a line of `text`.
std::optional<std::string> lineValue(const std::string& text, std::string_view prefix) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view line(text.data() + at, end - at);
    if (line.starts_with(prefix)) return std::string(line.substr(prefix.size()));
    at = end + 1;
  }
  return std::nullopt;
}

enum class Backend { unreachable, answering };

struct MatrixCase {
  std::string label;
  std::string how;
  bool exception;  // an exception record rather than a signal record
  Backend backend;
};

void PrintTo(const MatrixCase& c, std::ostream* out) { *out << c.label; }

// What one crashed process left behind, counted the way the next run of the
// host would find it.
struct Reports {
  std::size_t stored = 0;  // in the crash log store
  std::size_t slots = 0;   // in crash slots that still hold a record
  std::size_t queued = 0;  // crash reports in the analytics client's offline queue
  std::size_t posted = 0;  // crash reports the backend received
};

std::ostream& operator<<(std::ostream& out, const Reports& r) {
  return out << "stored " << r.stored << ", in slots " << r.slots << ", queued " << r.queued << ", posted " << r.posted;
}

class CrashMatrixSlowTest : public ::testing::TestWithParam<MatrixCase> {
 protected:
  Reports reportsLeft(const std::filesystem::path& directory, const std::string& queueService) {
    Reports reports;
    const auto store = makeLinuxSecureStore(directory);
    if (auto logs = store->copyMatching(kKivSDKService, kCrashLogsKey).data) {
      const auto list = json::parse(std::string_view(reinterpret_cast<const char*>(logs->data()), logs->size()));
      if (list && list->is_array()) reports.stored = list->size();
    }
    for (const auto& slot : makeLinuxCrashPrimitives(directory)->leftCrashSlots()) {
      // An emptied slot is what a crash leaves once its record is safe elsewhere.
      if (auto record = json::parse(slot->read()); record && record->is_object()) ++reports.slots;
    }
    if (auto queue = store->copyMatching(queueService, queue_format::queueKey).data) {
      const auto events =
          queue_format::decodeQueue(std::string_view(reinterpret_cast<const char*>(queue->data()), queue->size()));
      EXPECT_TRUE(events.has_value()) << "the offline queue cannot be read";
      for (const auto& event : events.value_or(std::vector<QueuedEvent>{})) {
        if (event.endpoint == KivAnalyticsEndpoint::crashlytics) ++reports.queued;
      }
    }
    return reports;
  }

  std::size_t crashPostsReceived() const {
    std::size_t posts = 0;
    for (const auto& request : server.requests()) posts += request.path.ends_with("crashlytics") ? 1 : 0;
    return posts;
  }

  testing::RecordingHttpServer server;
};

TEST_P(CrashMatrixSlowTest, EveryCrashEndsAndLeavesExactlyOneReport) {
  const auto& c = GetParam();
  const std::string backendURL =
      c.backend == Backend::answering ? server.url() : "http://127.0.0.1:1/";  // nobody listens
  for (int run = 0; run < reliabilityRuns(); ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    testing::TemporaryDirectory scratch;
    const std::size_t postsBefore = crashPostsReceived();
    const auto end = testing::runToEnd(testing::programPath("crash"),
                                       {scratch.path().string(), c.how, "post-to=" + backendURL, "disk"}, kChildBound);
    ASSERT_FALSE(end.hung) << "the crashed child did not end within " << kChildBound << " s";
    ASSERT_TRUE(testing::endedAsCrash(end)) << "exit code " << end.exitCode << ", signal " << end.exitSignal << "\n"
                                            << end.errors;
    const auto queueService = lineValue(end.output, "queue ");
    ASSERT_TRUE(queueService) << end.output;

    Reports reports = reportsLeft(scratch.path(), *queueService);
    reports.posted = crashPostsReceived() - postsBefore;
    const bool answering = c.backend == Backend::answering;
    EXPECT_EQ(reports.posted, answering ? 1u : 0u) << reports;
    EXPECT_EQ(reports.queued, answering ? 0u : 1u) << reports;
    EXPECT_EQ(reports.stored + reports.slots, c.exception ? 1u : 0u) << reports;
  }
}

std::vector<MatrixCase> matrixCases() {
  struct Crash {
    std::string label, how;
    bool exception;
  };
  std::vector<Crash> crashes = {
      {"exception", "exception", true},
      {"exceptionWithoutMessage", "exception-without-message", true},
      {"stackOverflow", "overflow", false},
      {"twentyThreads", "threads", false},
  };
  for (int signal : kCrashSignals) {
    crashes.push_back({"signal" + std::to_string(signal), "raise-" + std::to_string(signal), false});
  }
  std::vector<MatrixCase> cases;
  for (const auto& crash : crashes) {
    cases.push_back({crash.label + "BackendUnreachable", crash.how, crash.exception, Backend::unreachable});
    cases.push_back({crash.label + "BackendAnswering", crash.how, crash.exception, Backend::answering});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Crashes, CrashMatrixSlowTest, ::testing::ValuesIn(matrixCases()),
                         [](const auto& p) { return p.param.label; });

}  // namespace
}  // namespace kiv
