#include "telemetry/bff_analytics.hpp"

#include <gtest/gtest.h>
#include <sodium.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <iostream>
#include <thread>

#include "kiv/backend.hpp"
#include "kiv/platform/secure_store.hpp"
#include "platform/crash/fake_crash_primitives.hpp"
#include "platform/http/scripted_http_session.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/analytics_configuration.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_handler.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordedRequest;
using testing::RecordingHttpServer;

constexpr const char* kTrackPath = "/bff/track-analytics";
constexpr const char* kCrashPath = "/bff/crashlytics";

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object.items()) keys.push_back(key);
  return keys;
}

KivAnalyticsEvent sdkResult() {
  return KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep);
}

// Tracks an sdk_result event carrying `step` and waits for its post to end.
void trackStep(KivBFFAnalytics& client, const std::string& step) {
  client.track(sdkResult(), KivBFFAnalytics::TextParams{{"step", step}}).wait();
}

std::string stepOf(Json body) { return body["properties"]["requestParams"].value("step", ""); }

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
  FakePathMonitorFactory& network() { return dynamic_cast<FakePathMonitorFactory&>(*platform()->pathMonitor); }
  MemorySecureStore& store() { return dynamic_cast<MemorySecureStore&>(*platform()->secureStore); }
  // Reports a usable path and waits for the flush it starts to end.
  void goOnline(const KivBFFAnalytics& analytics) {
    network().setStatus(NetworkPathStatus::satisfied);
    testPlatform().pool->waitIdle();
    analytics.flushFinished().wait();
  }
  std::optional<std::vector<KivBFFAnalytics::QueuedEvent>> storedQueue(const KivBFFAnalytics& client) {
    const auto items = store().items();
    const auto found = items.find({client.storageNamespace(), std::string(KivBFFAnalytics::queueKey)});
    if (found == items.end()) return std::nullopt;
    return KivBFFAnalytics::decodeQueue(std::string(found->second.begin(), found->second.end()));
  }
  std::vector<Json> bodies(const char* path) {
    std::vector<Json> out;
    for (const auto& request : server.requests(path)) out.push_back(request.bodyJson().value_or(Json()));
    return out;
  }
  using Steps = std::vector<std::string>;
  static Steps stepsOf(const std::vector<KivBFFAnalytics::QueuedEvent>& queue) {
    Steps steps;
    for (const auto& event : queue) steps.push_back(stepOf(event.jsonBody));
    return steps;
  }
  // The steps of the queue in the store, in order.
  Steps storedSteps(const KivBFFAnalytics& client) {
    const auto queue = storedQueue(client);
    return queue ? stepsOf(*queue) : Steps{"<nothing stored>"};
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

TEST_F(BFFAnalyticsTest, TrackPostsTheEnvelopeWithLiftedFieldsAndEnrichedParameters) {
  clock().set(TimePoint(std::chrono::milliseconds(1738326896789)));  // 2025-01-31T12:34:56.789Z
  auto analytics = configure();
  analytics
      ->track(sdkResult(),
              KivBFFAnalytics::TextParams{{"result", "granted"},
                                          {"responseCode", "201"},
                                          {"apiEndpoint", "/bff/sessions"},
                                          {"sdk_name", "spoofed"},
                                          {"imgData", "base64..."},
                                          {"zeta", "z"}},
              std::string("{ \"a\" : 1 }"))
      .wait();

  ASSERT_EQ(server.requests(kTrackPath).size(), 1u);
  const RecordedRequest request = server.requests(kTrackPath).front();
  EXPECT_EQ(request.method, "POST");
  for (const auto& [name, value] :
       std::vector<std::pair<std::string, std::string>>{{"Content-Type", "application/json"},
                                                        {"Cache-Control", "no-cache, no-store, must-revalidate"},
                                                        {"Pragma", "no-cache"},
                                                        {"Expires", "0"},
                                                        {"Authorization", "token-1"}}) {
    EXPECT_EQ(request.header(name), value) << name;
  }

  Json body = *request.bodyJson();
  const Json params = body["properties"]["requestParams"];
  body["properties"]["requestParams"] = "";
  EXPECT_EQ(body, (Json{{"userId", "person-1"},
                        {"event", "sdk_result"},
                        {"eventType", "sdk_step"},
                        {"properties",
                         {{"platform", "native_ios"},
                          {"clientId", "acme"},
                          {"personId", "person-1"},
                          {"sessionId", "session-A"},
                          {"timestamp", "2025-01-31T12:34:56.789Z"},
                          {"result", "granted"},
                          {"apiEndpoint", "/bff/sessions"},
                          {"responseCode", "201"},
                          {"requestParams", ""},
                          {"requestBody", R"({"a":1})"}}}}));
  EXPECT_FALSE(params.contains("result"));
  EXPECT_FALSE(params.contains("imgData"));
  EXPECT_EQ(params["sdk_name"], "KivFaceLivenessLite");
  EXPECT_EQ(params["sdkVersion"], "3.2.1");
  EXPECT_EQ(params["mobileToken"], "token-1");
  EXPECT_EQ(params["sdkInfoEnvironment"], "dev");
  EXPECT_TRUE(params["deviceData"].is_string());
  EXPECT_EQ(params["zeta"], "z");
}

TEST_F(BFFAnalyticsTest, ConfigurationAndProviderOverwriteCallerValuesButCallerDeviceDataStays) {
  auto c = configuration();
  c.entrypoint = "flutter";
  c.entrypointVersion = "";
  c.mobileToken = "\u2003\n";
  auto analytics = configure(c);
  analytics->setProvider("iproov");
  Json params = {{"entrypoint", "mine"}, {"provider", "other"}, {"deviceData", "caller's"}, {"attempt", 2}};
  analytics->track(KivAnalyticsFixedEvent::startSdk, params).wait();

  const RecordedRequest request = server.requests(kTrackPath).at(0);
  EXPECT_FALSE(request.header("Authorization").has_value());  // blank token: no header
  const Json body = *request.bodyJson();
  EXPECT_EQ(body["event"], "start_sdk");
  EXPECT_EQ(body["eventType"], "user_interaction");
  const Json& sent = body["properties"]["requestParams"];
  EXPECT_EQ(sent["entrypoint"], "flutter");
  EXPECT_FALSE(sent.contains("entrypointVersion"));
  EXPECT_EQ(sent["provider"], "iproov");
  EXPECT_EQ(sent["deviceData"], "caller's");
  EXPECT_EQ(sent["attempt"], 2);
}

struct UserIdCase {
  const char* name;
  std::optional<std::string> personId;
  std::string expected;
  friend void PrintTo(const UserIdCase& c, std::ostream* out) { *out << c.name; }
};

class UserIdTest : public BFFAnalyticsTest, public ::testing::WithParamInterface<UserIdCase> {};

TEST_P(UserIdTest, PersonIdTrimmedOrSessionIdWhenBlank) {
  auto c = configuration("session-X");
  c.personId = GetParam().personId;
  auto analytics = configure(c);
  const Json body = analytics->makeBody("e", KivAnalyticsEventType::sdkStep, analytics->makeProperties(Json(), {}));
  EXPECT_EQ(body["userId"], GetParam().expected);
  EXPECT_EQ(body["properties"]["personId"], GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, UserIdTest,
                         ::testing::Values(UserIdCase{"absent", std::nullopt, "session-X"},
                                           UserIdCase{"blank", " \n\t", "session-X"},
                                           UserIdCase{"noBreakSpace", "\u00a0", "session-X"},
                                           UserIdCase{"emSpacePadded", "\u2003p-7\u2003", "p-7"}),
                         [](const auto& test) { return std::string(test.param.name); });

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
  for (const auto& post : held) EXPECT_EQ(post.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

  auto& crash = dynamic_cast<FakeCrashPrimitives&>(*platform()->crash);
  KivCrashHandler::shared()->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  ASSERT_TRUE(crash.deliverSignal(SIGSEGV));
  // The crash path returned: by then the report was answered, so nothing
  // was left for abort().
  const auto reports = bodies(kCrashPath);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(loop().runUntilIdle(), 0u);
  EXPECT_EQ(reports[0]["event"], "crash");
  EXPECT_EQ(reports[0]["eventType"], "crash");
  EXPECT_EQ(reports[0]["properties"]["result"], "signal");
  EXPECT_EQ(reports[0]["properties"]["stackTrace"], "fake(symbol+0x1000)\nfake(symbol+0x2000)");
  EXPECT_EQ(reports[0]["properties"]["requestParams"]["sdk_name"], "KivFaceLivenessLite");
  for (const auto& post : held) EXPECT_EQ(post.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

  server.releaseAnswers();
  for (const auto& post : held) post.wait();
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
  auto& crash = dynamic_cast<FakeCrashPrimitives&>(*platform()->crash);
  KivCrashHandler::shared()->install(std::string(kKivSDKService), true);
  testPlatform().pool->waitIdle();
  ASSERT_TRUE(crash.deliverSignal(SIGSEGV));
  testPlatform().pool->waitIdle();

  const auto logs = KivCrashLogsManager(KivKeyChainManager::shared()).getCrashLogs();
  ASSERT_TRUE(logs);
  ASSERT_EQ(logs->size(), 1u);
  EXPECT_EQ((*logs)[0]["signal"], SIGSEGV);
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
  EXPECT_EQ(storedQueue(*second)->size(), 2u);

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
  EXPECT_EQ(stepsOf(analytics->queuedEvents()), GetParam().queued ? Steps{"1"} : Steps{});
}

INSTANTIATE_TEST_SUITE_P(Cases, AnswerTest,
                         ::testing::Values(AnswerCase{"ok204", Answer::http(204), false},
                                           AnswerCase{"ok299", Answer::http(299), false},
                                           AnswerCase{"redirect300", Answer::http(300), true},
                                           AnswerCase{"throttled429", Answer::http(429), true},
                                           AnswerCase{"server500", Answer::http(500, "boom"), true},
                                           AnswerCase{"dropped", Answer::dropConnection(), true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(BFFAnalyticsTest, NonHttpAnswerCountsAsServerError) {
  auto factory = std::make_shared<ScriptedHttpSessionFactory>(
      [](const HttpRequest& request) { return DataTaskResult{.data = "", .response = NonHttpResponse{request.url}}; });
  testPlatform().bundle().http = factory;
  testPlatform().install();
  auto analytics = configure();
  analytics->track(sdkResult()).wait();
  EXPECT_EQ(analytics->queuedEvents().size(), 1u);
  const auto lines = consoleLines();
  EXPECT_NE(std::find(lines.begin(), lines.end(), debugQuoted("KIV BFF ANALYTICS - RESPONSE (status: 500)")),
            lines.end());
}

TEST_F(BFFAnalyticsTest, QueuedEventsAreResentInOrderAfterANoticeWhenTheNetworkReturns) {
  server.setAnswer(kTrackPath, Answer::http(503));
  auto analytics = configure();
  for (const char* step : {"1", "2", "3"}) trackStep(*analytics, step);
  EXPECT_EQ(storedSteps(*analytics), (Steps{"1", "2", "3"}));

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);

  const auto sent = bodies(kTrackPath);
  ASSERT_EQ(sent.size(), 7u);
  EXPECT_EQ(sent[3]["event"], "no_connection");
  EXPECT_EQ(sent[3]["eventType"], "sdk_error");
  EXPECT_EQ(sent[3]["properties"]["result"], "recovered");
  EXPECT_EQ(sent[3]["properties"]["requestParams"]["queued_events"], "3");
  for (int i = 4; i < 7; ++i) EXPECT_EQ(sent[i]["properties"]["resent"], true);
  EXPECT_EQ((Steps{stepOf(sent[4]), stepOf(sent[5]), stepOf(sent[6])}), (Steps{"1", "2", "3"}));
  EXPECT_TRUE(analytics->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*analytics), Steps{});

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

TEST_F(BFFAnalyticsTest, PersistedQueueHoldsEndpointBase64BodyAndSecondsSince2001) {
  clock().set(TimePoint(std::chrono::seconds(978307200 + 1000)));  // 1000 s after 2001-01-01
  server.setAnswer(kTrackPath, Answer::http(500));
  server.setAnswer(kCrashPath, Answer::dropConnection());
  auto analytics = configure(configuration("session-A"));
  trackStep(*analytics, "1");
  analytics->sendCrashReport("trace").wait();

  const auto items = store().items();
  const Bytes& raw = items.at({analytics->storageNamespace(), std::string(KivBFFAnalytics::queueKey)});
  const Json stored = *json::parse(std::string(raw.begin(), raw.end()));
  ASSERT_EQ(stored.size(), 2u);
  EXPECT_EQ(keysOf(stored[0]), (std::vector<std::string>{"endpoint", "jsonBody", "timestamp"}));
  EXPECT_EQ(stored[0]["endpoint"], "track-analytics");
  EXPECT_EQ(stored[1]["endpoint"], "crashlytics");
  EXPECT_DOUBLE_EQ(stored[0]["timestamp"].get<double>(), 1000.0);
  // jsonBody is base64 of the compact body exactly as it was posted.
  const Json posted = *server.requests(kTrackPath).at(0).bodyJson();
  const std::string encoded = stored[0]["jsonBody"].get<std::string>();
  std::string decoded(encoded.size(), '\0');
  std::size_t length = 0;
  ASSERT_EQ(sodium_base642bin(reinterpret_cast<unsigned char*>(decoded.data()), decoded.size(), encoded.data(),
                              encoded.size(), nullptr, &length, nullptr, sodium_base64_VARIANT_ORIGINAL),
            0);
  decoded.resize(length);
  EXPECT_EQ(decoded, json::dumpCompact(posted));
  const Bytes& session = items.at({analytics->storageNamespace(), std::string(KivBFFAnalytics::queueSessionKey)});
  EXPECT_EQ(std::string(session.begin(), session.end()), "session-A");
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
  testPlatform().bundle().secureStore = makeLinuxSecureStore(directory.path());
  testPlatform().install();
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
    EXPECT_EQ(tracks[i]["properties"]["resent"], true);
  }
  EXPECT_TRUE(analytics->queuedEvents().empty());
  const auto left = KivKeyChainManager::shared()->readData(analytics->storageNamespace(), KivBFFAnalytics::queueKey);
  ASSERT_TRUE(left);
  EXPECT_EQ(std::string(left->begin(), left->end()), "[]");
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
        network().setStatus(NetworkPathStatus::satisfied);
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
  const int failedFlushes = analytics->retryAttempts();

  recovered = true;
  goOnline(*analytics);

  std::size_t notices = 0, resent = 0;
  for (const auto& body : bodies(kTrackPath)) {
    notices += body.value("event", "") == "no_connection";
    resent += body["properties"].contains("resent");
  }
  std::lock_guard lock(mutex);
  EXPECT_EQ(accepted.size(), static_cast<std::size_t>(kThreads * kPerThread));
  for (const auto& [n, times] : accepted) EXPECT_EQ(times, 1) << n;
  EXPECT_TRUE(analytics->queuedEvents().empty());
  EXPECT_EQ(storedSteps(*analytics), Steps{});
  std::cout << "[ figures  ] requests " << server.requestCount() << ", failed " << failures.load()
            << ", queued before recovery " << queuedBeforeRecovery << ", failed flushes before recovery "
            << failedFlushes << ", notices " << notices << ", resent " << resent << ", connections "
            << server.connectionsUsed() << "\n";
}

TEST_F(BFFAnalyticsTest, StoredBodyWithoutPropertiesObjectIsResentWithOnlyTheResentFlag) {
  const auto probe = KivBFFAnalytics::make(configuration(), KivKeyChainManager::shared());
  const std::string encoded = KivBFFAnalytics::encodeQueue(
      {{KivAnalyticsEndpoint::identifyAnalytics, Json{{"userId", "u"}, {"properties", "text"}}, clock().now()}});
  const std::string service = probe->storageNamespace();
  KivKeyChainManager::shared()->save(service, KivBFFAnalytics::queueKey,
                                     {reinterpret_cast<const std::uint8_t*>(encoded.data()), encoded.size()}, true);
  auto analytics = configure();
  goOnline(*analytics);
  const auto sent = bodies("/bff/identify-analytics");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], (Json{{"userId", "u"}, {"properties", {{"resent", true}}}}));
}

std::string base64Of(std::string_view bytes) {
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();
  return text;
}

struct DecodeCase {
  const char* name;
  Json entry;    // the one stored entry
  bool decodes;  // else the whole array is refused
  friend void PrintTo(const DecodeCase& c, std::ostream* out) { *out << c.name; }
};

class QueueDecodingTest : public ::testing::TestWithParam<DecodeCase> {};

// Endpoint, body bytes and a time the clock can hold must all decode; body
// bytes that are not a JSON object stand for an empty body. A decoded queue
// encodes again to the same entries.
TEST_P(QueueDecodingTest, AnEntryDecodesOnlyWhenEveryFieldDoes) {
  const auto& c = GetParam();
  const auto queue = KivBFFAnalytics::decodeQueue(json::dumpCompact(Json::array({c.entry, c.entry})));
  ASSERT_EQ(queue.has_value(), c.decodes);
  if (!c.decodes) return;
  ASSERT_EQ(queue->size(), 2u);
  const auto again = KivBFFAnalytics::decodeQueue(KivBFFAnalytics::encodeQueue(*queue));
  ASSERT_TRUE(again);
  EXPECT_EQ((*again)[1].jsonBody, (*queue)[1].jsonBody);
  EXPECT_EQ((*again)[1].timestamp, (*queue)[1].timestamp);
}

std::vector<DecodeCase> decodeCases() {
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += R"({"a":)";
  deep += "1" + std::string(100'000, '}');
  const auto entry = [](Json body, Json timestamp) {
    Json item = {{"endpoint", "track-analytics"}, {"timestamp", std::move(timestamp)}};
    if (!body.is_null()) item["jsonBody"] = std::move(body);
    return item;
  };
  return {
      {"object", entry(base64Of(R"({"event":"e"})"), 1.5), true},
      {"bodyNotAnObject", entry(base64Of("[1]"), 1.5), true},
      {"bodyNestedTooDeep", entry(base64Of(deep), -2.0), true},
      {"latestTime", entry(base64Of("{}"), 9.0e9 - 978307200.0), true},
      {"earliestTime", entry(base64Of("{}"), -9.0e9), true},
      {"bodyMissing", entry(Json(), 1.5), false},
      {"bodyNotBase64", entry("bm90IGJhc2U2NA=!", 1.5), false},
      {"bodyNotText", entry(7, 1.5), false},
      {"timeTooLate", entry(base64Of("{}"), 1e300), false},
      {"timeTooEarly", entry(base64Of("{}"), -1.0e10), false},
      {"timeMissing", entry(base64Of("{}"), Json()), false},
      {"endpointUnknown", Json{{"endpoint", "elsewhere"}, {"jsonBody", "e30="}, {"timestamp", 1}}, false},
  };
}

INSTANTIATE_TEST_SUITE_P(Entries, QueueDecodingTest, ::testing::ValuesIn(decodeCases()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(BFFAnalyticsTest, StoreWriteFailureKeepsTheEventInMemoryAndStillResends) {
  server.setAnswer(kTrackPath, Answer::http(500));
  store().failNextAdd(-34018);
  auto analytics = configure();
  trackStep(*analytics, "1");
  EXPECT_EQ(stepsOf(analytics->queuedEvents()), Steps{"1"});
  EXPECT_FALSE(storedQueue(*analytics).has_value());
  const auto lines = consoleLines();
  EXPECT_NE(std::find(lines.begin(), lines.end(), debugQuoted("KeychainError.unknown(-34018)")), lines.end());

  server.setAnswer(kTrackPath, Answer::http(200));
  goOnline(*analytics);
  EXPECT_EQ(stepOf(bodies(kTrackPath).back()), "1");
  EXPECT_TRUE(analytics->queuedEvents().empty());
}

struct NamespaceCase {
  const char* name;
  const char* clientId;
  const char* expected;
  friend void PrintTo(const NamespaceCase& c, std::ostream* out) { *out << c.name; }
};

class StorageNamespaceTest : public ::testing::TestWithParam<NamespaceCase> {};

// One "_" per code point outside the safe set, however many bytes it takes.
TEST_P(StorageNamespaceTest, ReplacesEachCharacterOutsideTheSafeSetOnce) {
  testing::TestPlatform platform;
  auto analytics = KivBFFAnalytics::make(
      {.sessionId = "s", .stage = KivAnalyticsStage::prod, .clientId = GetParam().clientId, .sdk = {"Sdk1", "1"}},
      KivKeyChainManager::shared());
  EXPECT_EQ(analytics->storageNamespace(), std::string("kiv_analytics_queue_prod_") + GetParam().expected + "_Sdk1");
}

INSTANTIATE_TEST_SUITE_P(Cases, StorageNamespaceTest,
                         ::testing::Values(NamespaceCase{"ascii", "acme corp/1", "acme_corp_1"},
                                           NamespaceCase{"combiningMark", "cafe\u0301", "cafe_"},
                                           NamespaceCase{"fourBytes", "a\U0001F600b", "a_b"},
                                           NamespaceCase{"brokenUtf8",
                                                         "a\xff\xfe"
                                                         "b",
                                                         "a__b"}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace kiv
