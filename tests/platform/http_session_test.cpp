#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

#include "kiv/platform/http.hpp"
#include "support/recording_http_server.hpp"
#include "platform/http/scripted_http_session.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordingHttpServer;
using namespace std::chrono_literals;

// Results of asynchronous tasks, with the thread each completion ran on.
class Completions {
 public:
  DataTaskCompletion record() {
    return [this](DataTaskResult result) {
      std::lock_guard lock(mutex_);
      results_.push_back(std::move(result));
      threads_.push_back(std::this_thread::get_id());
      changed_.notify_all();
    };
  }
  bool waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 10s, [&] { return results_.size() >= count; });
  }
  std::vector<DataTaskResult> results() {
    std::lock_guard lock(mutex_);
    return results_;
  }
  std::vector<std::thread::id> threads() {
    std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<DataTaskResult> results_;
  std::vector<std::thread::id> threads_;
};

class HttpSessionTest : public testing::PlatformTest {
 protected:
  HttpRequest get(std::string path) { return HttpRequest{.url = server.url(path)}; }

  RecordingHttpServer server;
  std::shared_ptr<HttpSession> session = platform()->http->makeSession({});
};

TEST_F(HttpSessionTest, RequestGoesOutAsGivenAndTheAnswerComesBackWhole) {
  const std::string sent("{\"a\":\0\xff}", 8);
  const std::string answered("ok\0\xfe", 4);
  server.setAnswer("/bff/echo", Answer::http(201, answered, "application/octet-stream").withHeader("X-Reply", "yes"));
  HttpRequest request{.url = server.url("/bff/echo?asyncAttempt=true"), .method = "POST", .body = sent};
  request.setValue("application/json", "content-type");
  request.setValue("no-cache", "Pragma");
  request.setValue("no-cache, no-store, must-revalidate", "pragma");  // replaces, keeps the first spelling

  const auto result = session->send(request);

  ASSERT_FALSE(result.error) << result.error->detail();
  ASSERT_NE(result.httpResponse(), nullptr);
  EXPECT_EQ(result.httpResponse()->statusCode, 201);
  EXPECT_EQ(result.httpResponse()->value("x-reply"), "yes");
  EXPECT_EQ(result.data, answered);
  const auto recorded = server.requests().at(0);
  EXPECT_EQ(recorded.method, "POST");
  EXPECT_EQ(recorded.target, "/bff/echo?asyncAttempt=true");
  EXPECT_EQ(recorded.body, sent);
  const auto has = [&](const HttpHeader& header) {
    return std::ranges::find(recorded.headers, header) != recorded.headers.end();
  };
  EXPECT_TRUE(has({"content-type", "application/json"}));
  EXPECT_TRUE(has({"Pragma", "no-cache, no-store, must-revalidate"}));
  EXPECT_FALSE(recorded.header("Expect"));
  EXPECT_FALSE(recorded.header("Cookie"));
}

TEST_F(HttpSessionTest, BodyWithoutContentTypeIsNotLabelledAndGetSendsNoBody) {
  session->send({.url = server.url("/post"), .method = "POST", .body = "x=1"});
  session->send({.url = server.url("/get"), .method = "GET", .body = "ignored"});
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].header("Content-Type"), std::nullopt);
  EXPECT_EQ(requests[0].body, "x=1");
  EXPECT_EQ(requests[1].method, "GET");
  EXPECT_EQ(requests[1].body, "");
}

struct StatusCase {
  int status;
  std::string body;
  friend void PrintTo(const StatusCase& c, std::ostream* os) { *os << c.status; }
};

class HttpStatusTest : public HttpSessionTest, public ::testing::WithParamInterface<StatusCase> {};

// Statuses outside 2xx are answers, not transport errors; an empty body is
// present and empty, not absent.
TEST_P(HttpStatusTest, EveryStatusArrivesWithItsBodyAndNoError) {
  server.setAnswer("/s", Answer::json(GetParam().status, GetParam().body));
  const auto result = session->send(get("/s"));
  EXPECT_FALSE(result.error);
  ASSERT_NE(result.httpResponse(), nullptr);
  EXPECT_EQ(result.httpResponse()->statusCode, GetParam().status);
  EXPECT_EQ(result.data, GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(Statuses, HttpStatusTest,
                         ::testing::Values(StatusCase{200, R"({"id":"s1"})"}, StatusCase{204, ""}, StatusCase{299, ""},
                                           StatusCase{404, R"({"message":"x"})"}, StatusCase{429, "slow down"},
                                           StatusCase{500, R"({"message":"y"})"}));

struct FailureCase {
  std::string name;
  std::function<std::string(const RecordingHttpServer&)> url;
  std::optional<Answer> answer;
  HttpErrorCode code;
  bool withResponse = false;
  double timeoutSeconds = 10.0;
  friend void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.name; }
};

class HttpFailureTest : public HttpSessionTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(HttpFailureTest, TransportFailureGivesAnErrorAndNoBody) {
  const auto& c = GetParam();
  if (c.answer) server.setAnswer("/fail", *c.answer);
  const auto result = session->send({.url = c.url(server), .timeoutSeconds = c.timeoutSeconds});
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code(), c.code) << result.error->detail();
  EXPECT_FALSE(result.error->localizedDescription().empty());
  EXPECT_EQ(result.response.has_value(), c.withResponse);
  EXPECT_FALSE(result.data);
}

const auto failUrl = [](const RecordingHttpServer& s) { return s.url("/fail"); };
const auto fixedUrl = [](std::string text) { return [text](const RecordingHttpServer&) { return text; }; };

INSTANTIATE_TEST_SUITE_P(
    Failures, HttpFailureTest,
    ::testing::Values(
        FailureCase{"TimeOut", failUrl, Answer::http(200).after(60s), HttpErrorCode::timedOut, false, 0.2},
        FailureCase{"Dropped", failUrl, Answer::dropConnection(), HttpErrorCode::networkConnectionLost},
        FailureCase{"CutOff", failUrl, Answer::cutOff(200, "{\"id\"", 100), HttpErrorCode::networkConnectionLost, true},
        FailureCase{"Refused", fixedUrl("http://127.0.0.1:1/"), std::nullopt, HttpErrorCode::cannotConnectToHost},
        FailureCase{"FileURL", fixedUrl("file:///error"), std::nullopt, HttpErrorCode::unsupportedURL},
        FailureCase{"WebSocketURL", fixedUrl("wss://eu/ws"), std::nullopt, HttpErrorCode::unsupportedURL},
        FailureCase{"NoScheme", fixedUrl("error"), std::nullopt, HttpErrorCode::badURL},
        FailureCase{"Blank", fixedUrl("http://exa mple/"), std::nullopt, HttpErrorCode::badURL}),
    [](const auto& param) { return param.param.name; });

TEST_F(HttpSessionTest, ConcurrentTasksAreInFlightTogetherAndCompleteOnTheSessionThread) {
  server.holdAnswers();
  Completions completions;
  for (int i = 0; i < 4; ++i) session->dataTask(get("/c" + std::to_string(i)), completions.record())->resume();
  // All four arrive while none has been answered: they run concurrently.
  ASSERT_TRUE(server.waitForRequests(4));
  server.releaseAnswers();
  ASSERT_TRUE(completions.waitFor(4));
  for (const auto& result : completions.results()) EXPECT_EQ(result.httpResponse()->statusCode, 200);
  const auto threads = completions.threads();
  EXPECT_NE(threads[0], std::this_thread::get_id());
  EXPECT_EQ(std::count(threads.begin(), threads.end(), threads[0]), 4);
}

TEST_F(HttpSessionTest, SequentialRequestsReuseOneConnectionAndSurviveItsClosing) {
  for (int i = 0; i < 5; ++i) ASSERT_FALSE(session->send(get("/r")).error);
  EXPECT_EQ(server.connectionsUsed(), 1u);
  server.dropConnections();
  EXPECT_FALSE(session->send(get("/r")).error);
  EXPECT_EQ(server.connectionsUsed(), 2u);
}

TEST_F(HttpSessionTest, CookiesAreNeitherKeptNorSentAndRedirectsAreFollowed) {
  server.setAnswer("/old", Answer::http(302).withHeader("Location", "/new").withHeader("Set-Cookie", "id=1; Path=/"));
  server.setAnswer("/new", Answer::http(200, "here"));
  const auto result = session->send(get("/old"));
  ASSERT_NE(result.httpResponse(), nullptr);
  EXPECT_EQ(result.httpResponse()->url, server.url("/new"));
  EXPECT_EQ(result.data, "here");
  session->send(get("/again"));
  for (const auto& request : server.requests()) EXPECT_FALSE(request.header("Cookie")) << request.target;
}

TEST_F(HttpSessionTest, CancelCompletesOnceWithCancelledWhateverTheTaskState) {
  server.holdAnswers();
  Completions completions;
  auto running = session->dataTask(get("/running"), completions.record());
  running->resume();
  ASSERT_TRUE(server.waitForRequests(1));
  running->cancel();
  running->cancel();
  auto suspended = session->dataTask(get("/never-sent"), completions.record());
  suspended->cancel();
  suspended->resume();
  ASSERT_TRUE(completions.waitFor(2));
  server.releaseAnswers();
  // A later round trip on the same thread: a late second completion would have come by now.
  EXPECT_FALSE(session->send(get("/after")).error);
  running->resume();

  const auto results = completions.results();
  ASSERT_EQ(results.size(), 2u);
  for (const auto& result : results) {
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code(), HttpErrorCode::cancelled);
    EXPECT_FALSE(result.response);
  }
  EXPECT_TRUE(server.requests("/never-sent").empty());
}

TEST_F(HttpSessionTest, EndingTheSessionCompletesEveryTaskOnceWithCancelled) {
  server.holdAnswers();
  Completions completions;
  for (int i = 0; i < 3; ++i) session->dataTask(get("/held"), completions.record())->resume();
  auto late = session->dataTask(get("/late"), completions.record());
  ASSERT_TRUE(server.waitForRequests(3));

  session.reset();  // returns once the in-flight completions have run
  EXPECT_EQ(completions.results().size(), 3u);
  late->resume();  // its session is gone
  ASSERT_TRUE(completions.waitFor(4));
  testPlatform().pool->waitIdle();

  const auto results = completions.results();
  ASSERT_EQ(results.size(), 4u);
  for (const auto& result : results) EXPECT_EQ(result.error->code(), HttpErrorCode::cancelled);
  for (const auto& thread : completions.threads()) EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(HttpSessionTest, CompletionMayDropItsSessionOrCallBackIntoItWithoutDeadlock) {
  Completions completions;
  std::optional<DataTaskResult> nested;
  auto task = session->dataTask(get("/a"), [&, owner = session](DataTaskResult result) {
    nested = owner->send(get("/nested"));  // cannot wait for its own thread
    completions.record()(std::move(result));
  });
  session.reset();  // the completion now holds the last reference
  task->resume();
  task.reset();
  ASSERT_TRUE(completions.waitFor(1));
  EXPECT_EQ(completions.results()[0].httpResponse()->statusCode, 200);
  ASSERT_TRUE(nested && nested->error);
  EXPECT_EQ(nested->error->code(), HttpErrorCode::cancelled);
}

// OpenSSL writes to its sockets without MSG_NOSIGNAL; on the session's thread
// such a write to a connection the peer closed must fail, not kill the host.
TEST_F(HttpSessionTest, WritesToAClosedSocketOnTheSessionThreadRaiseNoSignal) {
  Completions completions;
  bool blocked = false;
  ssize_t written = 0;
  int writeError = 0;
  session
      ->dataTask(get("/s"),
                 [&](DataTaskResult result) {
                   sigset_t mask;
                   pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                   blocked = sigismember(&mask, SIGPIPE) == 1;
                   int pair[2];
                   socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
                   close(pair[1]);
                   written = write(pair[0], "x", 1);
                   writeError = errno;
                   close(pair[0]);
                   completions.record()(std::move(result));
                 })
      ->resume();
  ASSERT_TRUE(completions.waitFor(1));
  EXPECT_TRUE(blocked);
  EXPECT_EQ(written, -1);
  EXPECT_EQ(writeError, EPIPE);
}

TEST_F(HttpSessionTest, ScriptedSessionsGiveAnswersNoSocketCan) {
  auto factory = std::make_shared<ScriptedHttpSessionFactory>(
      [](const HttpRequest& request) { return DataTaskResult{.data = "", .response = NonHttpResponse{request.url}}; });
  Completions completions;
  factory->makeSession({})->dataTask({.url = "file:///error"}, completions.record())->resume();
  ASSERT_TRUE(completions.waitFor(1));
  const auto result = completions.results()[0];
  EXPECT_TRUE(result.response);
  EXPECT_EQ(result.httpResponse(), nullptr);  // callers count it as not HTTP
  EXPECT_NE(completions.threads()[0], std::this_thread::get_id());
  EXPECT_EQ(factory->requests().at(0).url, "file:///error");
}

}  // namespace
}  // namespace kiv
