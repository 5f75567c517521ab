// Real crashes: a child process installs the crash handler and crashes on
// command; this process then plays the next run of the host, installing over
// the same store directory, and sees the record resent and removed.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>

#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/programs.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/crash_report_sender.hpp"

extern char** environ;

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

struct ChildEnd {
  bool hung = false;
  std::string errors;  // its standard error
  int exitSignal = 0;  // 0 when it exited
  int exitCode = 0;
  double crashToExit = -1;  // seconds from the child's "crashing" line to its end
};

double monotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Runs the crash program to its end, bounded, reading its output as it goes.
ChildEnd runCrashProgram(const std::vector<std::string>& arguments, const std::filesystem::path& errorFile) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return {.hung = true};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const std::string program = testing::programPath("crash");
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (spawned != 0) {
    close(out[0]);
    return {.hung = true};
  }
  const int exited = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));

  ChildEnd end;
  std::string output;
  double crashedAt = -1;
  const double deadline = monotonicNow() + kChildBound;
  bool outputOpen = true;
  for (;;) {
    const double left = deadline - monotonicNow();
    if (left <= 0) {
      end.hung = true;
      kill(pid, SIGKILL);
      break;
    }
    pollfd waits[2] = {{exited, POLLIN, 0}, {outputOpen ? out[0] : -1, POLLIN, 0}};
    if (poll(waits, 2, static_cast<int>(left * 1000) + 1) <= 0) continue;
    if (waits[1].revents) {
      char chunk[256];
      const ssize_t n = read(out[0], chunk, sizeof chunk);
      if (n > 0) {
        output.append(chunk, static_cast<std::size_t>(n));
        if (crashedAt < 0 && output.find('\n') != std::string::npos) {
          timespec now{};
          clock_gettime(CLOCK_MONOTONIC, &now);
          long long nanos = 0;
          if (std::sscanf(output.c_str(), "crashing %lld", &nanos) == 1) crashedAt = static_cast<double>(nanos) / 1e9;
        }
      } else {
        outputOpen = false;
      }
    }
    if (waits[0].revents) {
      if (crashedAt >= 0) end.crashToExit = monotonicNow() - crashedAt;
      break;
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  close(exited);
  close(out[0]);
  if (WIFSIGNALED(status)) end.exitSignal = WTERMSIG(status);
  if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
  std::ifstream errors(errorFile);
  end.errors.assign(std::istreambuf_iterator<char>(errors), {});
  return end;
}

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

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kivfll-crash-XXXXXX").string();
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

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

  ScratchDirectory scratch;
};

TEST_P(CrashProcessTest, TheCrashEndsTheProcessAndIsResentByTheNextRun) {
  const auto& c = GetParam();
  const ChildEnd end =
      runCrashProgram({scratch.path().string(), c.how, c.sender, c.store}, scratch.path() / "errors.txt");
  ASSERT_FALSE(end.hung) << "the crashed child did not end";
  if (kSanitized) {
    EXPECT_TRUE(endedAsSanitizedCrash(end)) << "exit code " << end.exitCode << "\n" << end.errors;
  } else {
    EXPECT_EQ(end.exitSignal, c.endSignal) << "exit code " << end.exitCode << "\n" << end.errors;
  }
  ASSERT_GE(end.crashToExit, 0) << "no crash announced";
  {
    std::lock_guard lock(gTimesMutex);
    gCrashToExit.push_back(end.crashToExit);
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
