// Real crashes: a child process installs the crash handler and crashes on
// command; this process then plays the next run of the host, installing over
// the same store directory, and sees the record resent and removed.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>

#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/crash_report_sender.hpp"

namespace kiv {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizer's own handlers are the ones put back, and a repeated fault
// ends in their report rather than in the plain signal.
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr double kChildBound = 10.0;  // far beyond any crash path: reaching it is a hang

using testing::ChildEnd;

std::size_t occurrences(const std::string& text, std::string_view what) {
  std::size_t count = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

// Under a sanitizer the handler it had installed is the one put back, so a
// repeated fault ends in its deadly-signal report. Any other report (a race,
// a memory error, undefined behaviour) is a failure.
bool endedAsSanitizedCrash(const ChildEnd& end) {
  const std::size_t deadly = occurrences(end.errors, "Sanitizer:DEADLYSIGNAL");
  if (occurrences(end.errors, "WARNING: ThreadSanitizer") > 0) return false;
  if (occurrences(end.errors, "runtime error:") > 0) return false;
  if (occurrences(end.errors, "ERROR: AddressSanitizer") > deadly) return false;
  return end.exitSignal != 0 || deadly > 0;
}

struct ProcessCase {
  std::string label;
  std::string how;
  std::string sender = "none";
  std::string store = "disk";
  int endSignal = 0;     // how the child ends outside sanitizers
  int recordSignal = 0;  // 0: an exception record
  std::string name = {};
  std::string reason = {};
};

void PrintTo(const ProcessCase& c, std::ostream* out) { *out << c.label; }

std::mutex gTimesMutex;
std::vector<double> gCrashToExit;

class CrashProcessTest : public testing::PlatformTest, public ::testing::WithParamInterface<ProcessCase> {
 protected:
  static void TearDownTestSuite() {
    std::lock_guard lock(gTimesMutex);
    if (gCrashToExit.empty()) return;
    std::sort(gCrashToExit.begin(), gCrashToExit.end());
    std::cout << "signal to exit over " << gCrashToExit.size() << " crashes: p50 "
              << gCrashToExit[gCrashToExit.size() / 2] << " s, max " << gCrashToExit.back() << " s\n";
  }

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
  long long crashedAt = 0;  // the child's monotonic nanoseconds just before it crashed
  ASSERT_EQ(std::sscanf(end.output.c_str(), "crashing %lld", &crashedAt), 1) << "no crash announced";
  const double crashToExit = end.endedAt - static_cast<double>(crashedAt) / 1e9;
  if (kSanitized) {
    EXPECT_TRUE(endedAsSanitizedCrash(end)) << "exit code " << end.exitCode << "\n" << end.errors;
  } else {
    EXPECT_EQ(end.exitSignal, c.endSignal) << "exit code " << end.exitCode << "\n" << end.errors;
  }
  {
    std::lock_guard lock(gTimesMutex);
    gCrashToExit.push_back(crashToExit);
  }

  becomeTheNextRun();
  const auto left = recordsLeft();
  ASSERT_EQ(left.size(), 1u);
  const CrashRecord& record = left[0];
  EXPECT_TRUE(record["createdAt"].is_string());
  if (c.recordSignal) {
    EXPECT_EQ(record["signal"], c.recordSignal);
    EXPECT_FALSE(record["stackTrace"].get<std::string>().empty());
  } else {
    EXPECT_EQ(record["name"], c.name);
    EXPECT_EQ(record["reason"], c.reason);
    EXPECT_EQ(record["userInfo"], Json::object());
    EXPECT_FALSE(record["callStackSymbols"].empty());
  }

  struct Sent {
    CrashRecord record;
    CrashReportResult result;
  };
  auto sent = std::make_shared<std::vector<Sent>>();
  auto sentMutex = std::make_shared<std::mutex>();
  setCrashReportSender([sent, sentMutex](const CrashRecord& r, std::string, CrashReportResult result, auto done) {
    {
      std::lock_guard lock(*sentMutex);
      sent->push_back({r, result});
    }
    done(true);
    return true;
  });
  auto handler = KivCrashHandler::shared();
  handler->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  handler->uninstall();

  ASSERT_EQ(sent->size(), 1u);
  EXPECT_EQ((*sent)[0].record["type"], "stored");
  EXPECT_EQ((*sent)[0].result, c.recordSignal ? CrashReportResult::signal : CrashReportResult::exception);
  EXPECT_TRUE(recordsLeft().empty());
}

std::vector<ProcessCase> processCases() {
  std::vector<ProcessCase> cases = {
      {.label = "nullWrite", .how = "segv", .endSignal = SIGSEGV, .recordSignal = SIGSEGV},
      {.label = "abort", .how = "abort", .endSignal = SIGABRT, .recordSignal = SIGABRT},
      {.label = "trap", .how = "trap", .endSignal = SIGILL, .recordSignal = SIGILL},
      {.label = "integerDivision", .how = "divide", .endSignal = SIGFPE, .recordSignal = SIGFPE},
      {.label = "stackOverflow", .how = "overflow", .endSignal = SIGSEGV, .recordSignal = SIGSEGV},
      {.label = "twentyThreads", .how = "threads", .endSignal = SIGSEGV, .recordSignal = SIGSEGV},
      {.label = "exception", .how = "exception", .endSignal = SIGABRT, .name = "std::runtime_error", .reason = "boom"},
      {.label = "exceptionWithoutMessage",
       .how = "exception-without-message",
       .endSignal = SIGABRT,
       .name = "CrashWithoutMessage",
       .reason = ""},
      // A post that never answers: released after the bound all the same.
      {.label = "nullWriteUnansweredPost",
       .how = "segv",
       .sender = "never",
       .endSignal = SIGSEGV,
       .recordSignal = SIGSEGV},
      // The main loop runs the abort scheduled for the unfinished post.
      {.label = "raisedOnceUnansweredPost",
       .how = "raise-once-" + std::to_string(SIGXCPU),
       .sender = "never",
       .endSignal = SIGABRT,
       .recordSignal = SIGXCPU},
      // The main thread never returns to its loop: the watchdog aborts.
      {.label = "raisedOffMainUnansweredPost",
       .how = "raise-off-main-" + std::to_string(SIGXFSZ),
       .sender = "never",
       .endSignal = SIGABRT,
       .recordSignal = SIGXFSZ},
      // The store cannot be written: the record survives in the crash slot.
      {.label = "nullWriteStoreUnusable",
       .how = "segv",
       .store = "unusable",
       .endSignal = SIGSEGV,
       .recordSignal = SIGSEGV},
  };
  for (int signal : kCrashSignals) {
    cases.push_back({.label = "raise" + std::to_string(signal),
                     .how = "raise-" + std::to_string(signal),
                     .endSignal = signal,
                     .recordSignal = signal});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Crashes, CrashProcessTest, ::testing::ValuesIn(processCases()),
                         [](const auto& p) { return p.param.label; });

}  // namespace
}  // namespace kiv
