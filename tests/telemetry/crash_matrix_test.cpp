// The crash matrix: every handled signal, an uncaught exception with and
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
#include <cstdlib>
#include <string>
#include <vector>

#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"
#include "support/recording_http_server.hpp"
#include "telemetry/bff_analytics.hpp"
#include "telemetry/crash_handler.hpp"
#include "telemetry/crash_logs_manager.hpp"

namespace kiv {
namespace {

constexpr double kChildBound = 10.0;  // far beyond any crash path: reaching it is a hang

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
