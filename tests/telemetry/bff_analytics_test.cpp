// The analytics client and its offline queue against a real HTTP server on
// loopback: what is posted, what is queued and stored, and what is resent.
// How bodies and stored entries are built is pinned by the envelope and
// queue-format tests.
#include "telemetry/bff_analytics.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <thread>

#include "kiv/backend.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/analytics_configuration.hpp"
#include "support/child_process.hpp"
#include "support/forwarding_store.hpp"
#include "support/programs.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordedRequest;
using testing::RecordingHttpServer;
using Steps = std::vector<std::string>;

constexpr const char* kTrackPath = "/bff/track-analytics";
constexpr const char* kCrashPath = "/bff/crashlytics";

KivAnalyticsEvent sdkResult() {
  return KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep);
}

// Tracks an sdk_result event carrying `step` and waits until it was
// delivered or stored.
void trackStep(KivBFFAnalytics& client, const std::string& step) {
  client.track(sdkResult(), KivBFFAnalytics::TextParams{{"step", step}}).wait();
}

std::string stepOf(const Json& body) { return body["properties"]["requestParams"].value("step", ""); }

Steps stepsOf(const std::vector<QueuedEvent>& queue) {
  Steps steps;
  for (const auto& event : queue) steps.push_back(stepOf(event.jsonBody));
  return steps;
}

class BFFAnalyticsTest : public testing::PlatformTest {
 protected:
  BFFAnalyticsTest() { EXPECT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url())); }
  ~BFFAnalyticsTest() override { resetBackendRootURL(KivEnvironment::dev); }

  static KivBFFAnalytics::Configuration configuration(std::string sessionId = "session-A") {
    return testing::analyticsConfiguration(std::move(sessionId));
  }
  std::shared_ptr<KivBFFAnalytics> configure(KivBFFAnalytics::Configuration c = configuration()) {
    KivBFFAnalytics::configure(std::move(c));
    return KivBFFAnalytics::shared();
  }
  void useStore(std::shared_ptr<SecureItemStore> store) {
    testPlatform().bundle().secureStore = std::move(store);
    testPlatform().install();
  }
  // Reports a usable path and waits for the flush it starts to end.
  void goOnline(const KivBFFAnalytics& analytics) {
    fakeNetwork().setStatus(NetworkPathStatus::satisfied);
    testPlatform().pool->waitIdle();
    analytics.flushFinished().wait();
  }
  static std::optional<std::string> storedItem(const KivBFFAnalytics& client, std::string_view account) {
    const auto bytes = KivKeyChainManager::shared()->readData(client.storageNamespace(), account);
    if (!bytes) return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
  }
  // The steps of the queue in the store, in order.
  static Steps storedSteps(const KivBFFAnalytics& client) {
    const auto queue = queue_format::decodeQueue(storedItem(client, queue_format::queueKey).value_or(""));
    return queue ? stepsOf(*queue) : Steps{"<nothing stored>"};
  }
  std::vector<Json> bodies(const char* path) {
    std::vector<Json> out;
    for (const auto& request : server.requests(path)) out.push_back(request.bodyJson().value_or(Json()));
    return out;
  }
  // How often each step arrived marked as resent.
  std::map<std::string, int> resentSteps() {
    std::map<std::string, int> resent;
    for (const auto& body : bodies(kTrackPath)) {
      if (body["properties"].contains("resent")) ++resent[stepOf(body)];
    }
    return resent;
  }

  RecordingHttpServer server;
};

TEST_F(BFFAnalyticsTest, TrackPostsTheConfiguredEnvelopeWithTheAnalyticsHeaders) {
  auto analytics = configure();
  analytics->setProvider("iproov");
  trackStep(*analytics, "1");
  auto blank = configuration();
  blank.mobileToken = "\u2003\n";
  trackStep(*configure(blank), "2");

  const auto requests = server.requests(kTrackPath);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].method, "POST");
  for (const auto& [name, value] :
       std::vector<std::pair<std::string, std::string>>{{"Content-Type", "application/json"},
                                                        {"Cache-Control", "no-cache, no-store, must-revalidate"},
                                                        {"Pragma", "no-cache"},
                                                        {"Expires", "0"},
                                                        {"Authorization", "token-1"}}) {
    EXPECT_EQ(requests[0].header(name), value) << name;
  }
  EXPECT_FALSE(requests[1].header("Authorization").has_value());  // blank token: no header
  const Json properties = requests[0].bodyJson()->at("properties");
  const Json& params = properties["requestParams"];
  EXPECT_EQ((Json{properties["clientId"], properties["personId"], properties["sessionId"], params["mobileToken"],
                  params["sdkInfoEnvironment"], params["sdk_name"], params["provider"]}),
            (Json{"acme", "person-1", "session-A", "token-1", "dev", "KivFaceLivenessLite", "iproov"}));
}

// A backend that never answers analytics posts: no thread may wait for it.
// Pool work still runs at once, and a crash is still reported within its
// bound.
TEST_F(BFFAnalyticsTest, HeldPostsNeitherStarveThePoolNorHoldBackACrashReport) {
  server.holdAnswers(kTrackPath);
  auto analytics = configure();
  std::vector<std::shared_future<void>> held;
  for (int i = 0; i < 16; ++i) held.push_back(analytics->track(sdkResult()));
  ASSERT_TRUE(server.waitForRequests(1));

  std::promise<void> ran;
  platform()->taskPool->post([&ran] { ran.set_value(); });
  ASSERT_EQ(ran.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);

  KivCrashHandler::shared()->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  ASSERT_TRUE(fakeCrash().deliverSignal(SIGSEGV));
  // The crash path returned: by then the report was answered, so nothing
  // was left for abort().
  const auto reports = bodies(kCrashPath);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(loop().runUntilIdle(), 0u);
  EXPECT_EQ(reports[0]["properties"]["result"], "signal");
  EXPECT_EQ(reports[0]["properties"]["stackTrace"], "fake(symbol+0x1000)\nfake(symbol+0x2000)");
  for (const auto& post : held) EXPECT_EQ(post.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

  server.releaseAnswers();
  for (const auto& post : held) post.wait();
}

// A store whose writes of the offline queue wait until opened: a long
// queue on a slow disk.
class GatedStore final : public testing::ForwardingStore {
 public:
  std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override {
    std::unique_lock lock(mutex_);
    waiting_ = account == queue_format::queueKey;
    changed_.notify_all();
    changed_.wait(lock, [&] { return open_ || !waiting_; });
    return ForwardingStore::add(service, account, value);
  }

  bool waitForWrite() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return waiting_; });
  }
  void open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool waiting_ = false;
  bool open_ = false;
};

// The queue is written on a serial queue of its own: a write under way holds
// back neither the analytics session's other posts nor the failed post's
// caller, who hears once the body is stored.
TEST_F(BFFAnalyticsTest, AStoreWriteUnderWayHoldsBackNoPost) {
  auto store = std::make_shared<GatedStore>();
  useStore(store);
  server.setResponder([](const RecordedRequest& request, std::size_t) -> std::optional<Answer> {
    return stepOf(request.bodyJson().value_or(Json())) == "fails" ? Answer::http(500) : Answer::http(204);
  });
  auto analytics = configure();
  const auto queued = analytics->track(sdkResult(), KivBFFAnalytics::TextParams{{"step", "fails"}});
  ASSERT_TRUE(store->waitForWrite());
  const auto delivered = analytics->track(sdkResult(), KivBFFAnalytics::TextParams{{"step", "ok"}});
  const bool deliveredMeanwhile = delivered.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  const bool reportedQueuedEarly = queued.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  store->open();
  EXPECT_TRUE(deliveredMeanwhile);
  EXPECT_FALSE(reportedQueuedEarly);
  queued.wait();
  EXPECT_EQ(storedSteps(*analytics), Steps{"fails"});
}

// A session that refuses every task, as one torn down under the client.
struct RefusingHttpSession final : HttpSessionFactory, HttpSession, std::enable_shared_from_this<RefusingHttpSession> {
  std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration) override { return shared_from_this(); }
  std::shared_ptr<HttpDataTask> dataTask(HttpRequest, DataTaskCompletion) override {
    throw std::runtime_error("session torn down");
  }
  void invalidateAndCancel() override {}
};

TEST_F(BFFAnalyticsTest, ACrashReportThatCouldNotBePostedStaysStored) {
  testPlatform().bundle().http = std::make_shared<RefusingHttpSession>();
  testPlatform().install();
  configure();
  KivCrashHandler::shared()->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  ASSERT_TRUE(fakeCrash().deliverSignal(SIGSEGV));
  testPlatform().pool->waitIdle();

  const auto logs = KivCrashLogsManager(KivKeyChainManager::shared()).getCrashLogs();
  ASSERT_TRUE(logs);
  ASSERT_EQ(logs->size(), 1u);
  EXPECT_EQ((*logs)[0]["signal"], SIGSEGV);
}

struct AnswerCase {
  const char* name;
  Answer answer;
  bool queued;
  friend void PrintTo(const AnswerCase& c, std::ostream* out) { *out << c.name; }
};

class AnswerTest : public BFFAnalyticsTest, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(AnswerTest, FailedPostIsQueuedAndTrackStillReturns) {
  server.setAnswer(kTrackPath, GetParam().answer);
  auto analytics = configure();
  trackStep(*analytics, "1");
  ASSERT_GE(server.requestCount(), 1u);
  const Steps expected = GetParam().queued ? Steps{"1"} : Steps{};
  EXPECT_EQ(stepsOf(analytics->queuedEvents()), expected);
  EXPECT_EQ(storedSteps(*analytics), GetParam().queued ? expected : Steps{"<nothing stored>"});
}

INSTANTIATE_TEST_SUITE_P(Cases, AnswerTest,
                         ::testing::Values(AnswerCase{"ok204", Answer::http(204), false},
                                           AnswerCase{"ok299", Answer::http(299), false},
                                           AnswerCase{"redirect300", Answer::http(300), true},
                                           AnswerCase{"throttled429", Answer::http(429), true},
                                           AnswerCase{"server500", Answer::http(500, "boom"), true},
                                           AnswerCase{"dropped", Answer::dropConnection(), true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(BFFAnalyticsTest, QueuedEventsAreResentInOrderAfterANoticeWhenTheNetworkReturns) {
  server.setAnswer(kTrackPath, Answer::http(503));
  auto analytics = configure();
  for (const char* step : {"1", "2", "3"}) trackStep(*analytics, step);
  EXPECT_EQ(storedSteps(*analytics), (Steps{"1", "2", "3"}));
  EXPECT_EQ(storedItem(*analytics, queue_format::queueSessionKey), "session-A");

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);

  const auto sent = bodies(kTrackPath);
  ASSERT_EQ(sent.size(), 7u);
  EXPECT_EQ(sent[3]["event"], "no_connection");
  EXPECT_EQ(sent[3]["properties"]["requestParams"]["queued_events"], "3");
  for (int i = 4; i < 7; ++i) EXPECT_EQ(sent[i]["properties"]["resent"], true);
  EXPECT_EQ((Steps{stepOf(sent[4]), stepOf(sent[5]), stepOf(sent[6])}), (Steps{"1", "2", "3"}));
  EXPECT_TRUE(analytics->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*analytics), Steps{});
  EXPECT_EQ(storedItem(*analytics, queue_format::queueSessionKey), "");

  goOnline(*analytics);  // nothing left: no further notice
  EXPECT_EQ(server.requests(kTrackPath).size(), 7u);
}

TEST_F(BFFAnalyticsTest, FailedResendKeepsTheUndeliveredRestInStore) {
  server.setAnswer(kTrackPath, Answer::http(500));
  auto analytics = configure();
  for (const char* step : {"1", "2", "3"}) trackStep(*analytics, step);
  // Notice and first resend succeed, the second resend fails.
  server.setResponder([](const RecordedRequest&, std::size_t index) -> std::optional<Answer> {
    return index == 5 ? Answer::http(500) : Answer::http(200);
  });
  goOnline(*analytics);

  EXPECT_EQ(stepsOf(analytics->queuedEvents()), (Steps{"2", "3"}));
  EXPECT_EQ(storedSteps(*analytics), (Steps{"2", "3"}));
  EXPECT_EQ(analytics->retryAttempts(), 1);
}

TEST_F(BFFAnalyticsTest, ThreeFailedFlushesSilenceTheMonitorForThisProcess) {
  server.setAnswer(kTrackPath, Answer::http(500));
  auto analytics = configure();
  analytics->track(sdkResult()).wait();
  for (int i = 0; i < 3; ++i) goOnline(*analytics);
  EXPECT_EQ(server.requests(kTrackPath).size(), 4u);  // the event and three notices
  EXPECT_EQ(analytics->retryAttempts(), 3);

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);
  EXPECT_EQ(server.requests(kTrackPath).size(), 4u);
  EXPECT_EQ(analytics->queuedEvents().size(), 1u);
}

TEST_F(BFFAnalyticsTest, EventsQueuedDuringAFlushStayQueued) {
  server.setAnswer(kTrackPath, Answer::http(500));
  auto analytics = configure();
  trackStep(*analytics, "1");
  trackStep(*analytics, "2");

  // While the first resend is on the wire, another event fails and is queued
  // behind the two being resent.
  server.setResponder([&](const RecordedRequest& request, std::size_t) -> std::optional<Answer> {
    const std::string step = stepOf(request.bodyJson().value_or(Json()));
    if (step == "late") return Answer::http(500);
    if (step == "1") trackStep(*analytics, "late");
    return Answer::http(200);
  });
  goOnline(*analytics);

  EXPECT_EQ(stepsOf(analytics->queuedEvents()), Steps{"late"});
  EXPECT_EQ(storedSteps(*analytics), Steps{"late"});
  EXPECT_EQ(analytics->retryAttempts(), 0);
}

TEST_F(BFFAnalyticsTest, QueueLeftByAnEarlierProcessIsLoadedAndResentByTheNext) {
  testing::TemporaryDirectory directory;
  server.setAnswer(kTrackPath, Answer::http(500));
  const auto child = testing::runToEnd(testing::programPath("analytics_queue"),
                                       {directory.path().string(), server.url(), "session-A", "1", "2"}, 60.0);
  ASSERT_FALSE(child.hung);
  ASSERT_EQ(child.exitCode, 0) << child.output << child.errors;

  // This process, on the same store: the stored queue is loaded, a failed
  // event of its own (another session) is refused, and a usable path resends
  // the earlier session's events in order.
  useStore(makeLinuxSecureStore(directory.path()));
  auto analytics = configure(configuration("session-B"));
  ASSERT_EQ(analytics->queuedEvents().size(), 2u);
  trackStep(*analytics, "B");
  EXPECT_EQ(analytics->queuedEvents().size(), 2u);

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);
  const auto tracks = bodies(kTrackPath);
  ASSERT_EQ(tracks.size(), 6u);  // two failed in the child, B, the notice, two resends
  EXPECT_EQ(tracks[3]["event"], "no_connection");
  for (int i = 4; i < 6; ++i) {
    EXPECT_EQ(stepOf(tracks[i]), std::to_string(i - 3));
    EXPECT_EQ(tracks[i]["properties"]["sessionId"], "session-A");
  }
  EXPECT_TRUE(analytics->queuedEvents().empty());
  EXPECT_EQ(storedItem(*analytics, queue_format::queueKey), "[]");
}

// The facade passes a token without an issuer as the client id. The store
// seals values but keeps service names in clear: no byte of its files may
// hold the token.
TEST_F(BFFAnalyticsTest, AnOpaqueTokenNeverReachesTheStoreInClear) {
  testing::TemporaryDirectory directory;
  useStore(makeLinuxSecureStore(directory.path()));
  server.setAnswer(kTrackPath, Answer::http(500));
  auto opaque = configuration();
  opaque.clientId = opaque.mobileToken = "opaque-mobile-token-7f3a";
  auto analytics = configure(opaque);
  trackStep(*analytics, "1");
  ASSERT_EQ(storedSteps(*analytics), Steps{"1"});

  for (const auto& file : std::filesystem::directory_iterator(directory.path())) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(bytes.find(opaque.mobileToken), std::string::npos) << file.path();
  }
}

// Configuring again hands the stored queue to the new client alone: the
// replaced one, still held elsewhere, neither resends it nor writes over it.
TEST_F(BFFAnalyticsTest, AReplacedClientNeitherFlushesNorWritesTheQueue) {
  server.setAnswer(kTrackPath, Answer::http(503));
  auto first = configure(configuration("session-A"));
  for (const char* step : {"1", "2"}) trackStep(*first, step);
  auto second = configure(configuration("session-B"));
  ASSERT_EQ(second->queuedEvents().size(), 2u);
  trackStep(*first, "late");
  EXPECT_EQ(storedSteps(*second), (Steps{"1", "2"}));

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*second);
  testPlatform().pool->waitIdle();
  first->flushFinished().wait();

  EXPECT_EQ(resentSteps(), (std::map<std::string, int>{{"1", 1}, {"2", 1}}));
  EXPECT_EQ(
      std::ranges::count_if(bodies(kTrackPath), [](const Json& b) { return b.value("event", "") == "no_connection"; }),
      1);
  EXPECT_TRUE(second->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*second), Steps{});
}

// A client replaced while its flush is on the wire: the new client loads a
// queue whose front the old flush is delivering, and must resend only what
// that flush did not deliver.
TEST_F(BFFAnalyticsTest, AClientReplacedMidFlushResendsOnlyWhatTheOldFlushLeft) {
  server.setAnswer(kTrackPath, Answer::http(503));
  auto first = configure(configuration("session-A"));
  for (const char* step : {"1", "2", "3"}) trackStep(*first, step);
  server.setAnswer(kTrackPath, Answer::http(200));
  std::atomic<bool> replaced = false;
  server.setResponder([&](const RecordedRequest& request, std::size_t) -> std::optional<Answer> {
    if (stepOf(request.bodyJson().value_or(Json())) == "2" && !replaced.exchange(true)) {
      KivBFFAnalytics::configure(configuration("session-B"));
    }
    return std::nullopt;
  });
  goOnline(*first);
  ASSERT_TRUE(replaced);
  const auto second = KivBFFAnalytics::shared();
  testPlatform().pool->waitIdle();
  second->flushFinished().wait();

  EXPECT_EQ(resentSteps(), (std::map<std::string, int>{{"1", 1}, {"2", 1}, {"3", 1}}));
  EXPECT_TRUE(second->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*second), Steps{});
}

// 2,000 events from 4 threads while every third request (notices aside)
// fails and flushes run in between; after the server recovers and a last
// flush runs, each event has been accepted exactly once.
TEST_F(BFFAnalyticsTest, NoEventIsLostOrDuplicatedUnderLoad) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 500;
  std::mutex mutex;
  std::map<std::string, int> accepted;
  std::atomic<bool> recovered{false};
  std::atomic<std::size_t> failures{0};
  server.setResponder([&](const RecordedRequest& request, std::size_t index) -> std::optional<Answer> {
    const Json body = request.bodyJson().value_or(Json());
    const bool notice = body.value("event", "") == "no_connection";
    if (!recovered && !notice && index % 3 == 2) {
      // Flushes are asked for while the producers still run.
      if (const auto failed = ++failures; failed == 150 || failed == 400) {
        fakeNetwork().setStatus(NetworkPathStatus::satisfied);
      }
      return Answer::http(500);
    }
    if (!notice) {
      std::lock_guard lock(mutex);
      ++accepted[body["properties"]["requestParams"].value("n", "")];
    }
    return Answer::http(204);
  });
  auto analytics = configure();

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::vector<std::shared_future<void>> posted;
      for (int i = 0; i < kPerThread; ++i) {
        posted.push_back(analytics->track(
            sdkResult(), KivBFFAnalytics::TextParams{{"n", std::to_string(t) + "-" + std::to_string(i)}}));
      }
      for (const auto& done : posted) done.wait();
    });
  }
  for (auto& thread : threads) thread.join();
  testPlatform().pool->waitIdle();
  analytics->flushFinished().wait();
  const std::size_t queuedBeforeRecovery = analytics->queuedEvents().size();

  recovered = true;
  goOnline(*analytics);

  std::lock_guard lock(mutex);
  EXPECT_EQ(accepted.size(), static_cast<std::size_t>(kThreads * kPerThread));
  for (const auto& [n, times] : accepted) EXPECT_EQ(times, 1) << n;
  EXPECT_TRUE(analytics->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*analytics), Steps{});
  std::cout << "[ figures  ] requests " << server.requestCount() << ", failed " << failures.load()
            << ", queued before recovery " << queuedBeforeRecovery << ", connections " << server.connectionsUsed()
            << "\n";
}

TEST_F(BFFAnalyticsTest, StoreWriteFailureKeepsTheEventInMemoryAndStillResends) {
  server.setAnswer(kTrackPath, Answer::http(500));
  fakeStore().failNextAdd(-34018);
  auto analytics = configure();
  trackStep(*analytics, "1");
  EXPECT_EQ(stepsOf(analytics->queuedEvents()), Steps{"1"});
  EXPECT_FALSE(storedItem(*analytics, queue_format::queueKey).has_value());
  const auto lines = consoleLines();
  EXPECT_NE(std::find(lines.begin(), lines.end(), debugQuoted("KeychainError.unknown(-34018)")), lines.end());

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);
  EXPECT_EQ(stepOf(bodies(kTrackPath).back()), "1");
  EXPECT_TRUE(analytics->queuedEvents().empty());
}

}  // namespace
}  // namespace kiv
