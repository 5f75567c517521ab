#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <variant>

#include "kiv/platform/http.hpp"
#include "platform/http/curl_http_session.hpp"
#include "support/child_process.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordingHttpServer;
using namespace std::chrono_literals;

// Results of asynchronous tasks, with the thread each completion ran on.
// Read them once waitFor has seen every completion expected.
struct Completions {
  DataTaskCompletion record() {
    return [this](DataTaskResult result) {
      std::lock_guard lock(mutex);
      results.push_back(std::move(result));
      threads.push_back(std::this_thread::get_id());
      changed.notify_all();
    };
  }
  bool waitFor(std::size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 10s, [&] { return results.size() >= count; });
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<DataTaskResult> results;
  std::vector<std::thread::id> threads;
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
  request.setValue("no-cache, no-store, must-revalidate", "pragma");  // names match in any case

  const auto result = session->send(request);

  ASSERT_FALSE(result.error) << result.error->detail();
  ASSERT_NE(result.httpResponse(), nullptr);
  EXPECT_EQ(std::tuple(result.httpResponse()->statusCode, result.httpResponse()->value("x-reply"), result.data),
            std::tuple(201, std::optional<std::string>("yes"), std::optional(answered)));
  // A body without a content type goes out unlabelled; a GET sends none.
  session->send({.url = server.url("/post"), .method = "POST", .body = "x=1"});
  session->send({.url = server.url("/get"), .method = "GET", .body = "ignored"});
  const auto recorded = server.requests();
  ASSERT_EQ(recorded.size(), 3u);
  using Sent =
      std::tuple<std::string, std::string, std::string, std::optional<std::string>, std::optional<std::string>>;
  const auto sentAs = [](const testing::RecordedRequest& r) {
    return Sent(r.method, r.target, r.body, r.header("content-type"), r.header("Pragma"));
  };
  EXPECT_EQ(sentAs(recorded[0]), Sent("POST", "/bff/echo?asyncAttempt=true", sent, "application/json",
                                      "no-cache, no-store, must-revalidate"));
  EXPECT_EQ(sentAs(recorded[1]), Sent("POST", "/post", "x=1", std::nullopt, std::nullopt));
  EXPECT_EQ(sentAs(recorded[2]), Sent("GET", "/get", "", std::nullopt, std::nullopt));
  EXPECT_FALSE(recorded[0].header("Expect") || recorded[0].header("Cookie"));
}

TEST_F(HttpSessionTest, HeaderTextNeverAddsALineToTheRequest) {
  HttpRequest request = get("/h");
  request.setValue("tok\r\nX-Injected: 1", "Authorization");
  request.setValue(std::string("a\0b\n", 4), "X-Nul");
  request.setValue("1", "X-Evil\r\nX-Injected");
  request.setValue("1", "Bad Name");
  ASSERT_FALSE(session->send(request).error);

  const auto recorded = server.requests().at(0);
  EXPECT_EQ(recorded.header("Authorization"), "tok  X-Injected: 1");
  EXPECT_EQ(recorded.header("X-Nul"), "a b");
  std::vector<std::string> names;
  for (const auto& header : recorded.headers) names.push_back(header.name);
  std::ranges::sort(names);
  EXPECT_EQ(names, (std::vector<std::string>{"Accept", "Authorization", "Host", "X-Nul"}));
}

struct FailureCase {
  std::string name;
  std::variant<Answer, std::string> cause;  // an answer at /fail, or a URL of its own
  HttpErrorCode code;
  bool withResponse = false;
  double timeoutSeconds = 10.0;
  friend void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.name; }
};

class HttpFailureTest : public HttpSessionTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(HttpFailureTest, TransportFailureGivesAnErrorAndNoBody) {
  const auto& c = GetParam();
  const auto* answer = std::get_if<Answer>(&c.cause);
  if (answer) server.setAnswer("/fail", *answer);
  const auto url = answer ? server.url("/fail") : std::get<std::string>(c.cause);
  const auto result = session->send({.url = url, .timeoutSeconds = c.timeoutSeconds});
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code(), c.code) << result.error->detail();
  EXPECT_FALSE(result.error->localizedDescription().empty());
  EXPECT_EQ(result.response.has_value(), c.withResponse);
  EXPECT_FALSE(result.data);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, HttpFailureTest,
    ::testing::Values(
        FailureCase{"TimeOut", Answer::http(200).after(60s), HttpErrorCode::timedOut, false, 0.2},
        FailureCase{"Dropped", Answer::dropConnection(), HttpErrorCode::networkConnectionLost},
        FailureCase{"CutOff", Answer::cutOff(200, "{\"id\"", 100), HttpErrorCode::networkConnectionLost, true},
        FailureCase{"TooLarge",
                    Answer::http(500, std::string(HttpSessionConfiguration{}.maximumResponseBodyBytes + 1, 'x')),
                    HttpErrorCode::dataLengthExceedsMaximum, true},
        FailureCase{"Refused", "http://127.0.0.1:1/", HttpErrorCode::cannotConnectToHost},
        FailureCase{"FileURL", "file:///error", HttpErrorCode::unsupportedURL},
        FailureCase{"NoScheme", "error", HttpErrorCode::badURL},
        FailureCase{"Blank", "http://exa mple/", HttpErrorCode::badURL}),
    [](const auto& param) { return param.param.name; });

// The request's time-out is an idle limit: an answer whose bytes keep coming
// succeeds however long it takes as a whole. The server's pace (one byte per
// 100 ms, 1.5 s in all against a 0.6 s limit) is what is tested, not a wait.
TEST_F(HttpSessionTest, SlowButSteadyAnswerOutlastsTheTimeOut) {
  constexpr std::size_t kBytes = 15;
  httplib::Server trickler;
  trickler.set_keep_alive_max_count(1);  // closes after the answer, so stop() need not wait out a keep-alive
  trickler.Get("/slow", [](const httplib::Request&, httplib::Response& response) {
    response.set_content_provider(kBytes, "text/plain", [](std::size_t, std::size_t, httplib::DataSink& sink) {
      std::this_thread::sleep_for(100ms);
      return sink.write("x", 1);
    });
  });
  const int port = trickler.bind_to_any_port("127.0.0.1");
  std::thread listener([&] { trickler.listen_after_bind(); });

  const auto result =
      session->send({.url = "http://127.0.0.1:" + std::to_string(port) + "/slow", .timeoutSeconds = 0.6});
  trickler.stop();
  listener.join();

  ASSERT_FALSE(result.error) << result.error->detail();
  EXPECT_EQ(result.data, std::string(kBytes, 'x'));
}

TEST_F(HttpSessionTest, ConcurrentTasksAreInFlightTogetherAndCompleteOnTheSessionThread) {
  server.holdAnswers();
  Completions completions;
  for (int i = 0; i < 4; ++i) session->dataTask(get("/c" + std::to_string(i)), completions.record())->resume();
  // All four arrive while none has been answered: they run concurrently.
  ASSERT_TRUE(server.waitForRequests(4));
  server.releaseAnswers();
  ASSERT_TRUE(completions.waitFor(4));
  for (const auto& result : completions.results) EXPECT_EQ(result.httpResponse()->statusCode, 200);
  const auto threads = completions.threads;
  EXPECT_NE(threads[0], std::this_thread::get_id());
  EXPECT_EQ(std::count(threads.begin(), threads.end(), threads[0]), 4);
}

TEST_F(HttpSessionTest, SequentialRequestsReuseOneConnectionAndSurviveItsClosing) {
  for (int i = 0; i < 5; ++i) ASSERT_FALSE(session->send(get("/r")).error);
  EXPECT_EQ(server.connectionsUsed(), 1u);
  server.dropConnections();
  EXPECT_FALSE(session->send(get("/r")).error);
  EXPECT_EQ(server.connectionsUsed(), 2u);
  // Each attempt makes its own session: the next one reuses the connection.
  session.reset();
  EXPECT_FALSE(platform()->http->makeSession({})->send(get("/r")).error);
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

// Once a chain of redirects has reached https it never steps back down to
// http, wherever it started: the body would be resent in clear. Hops up to
// https are followed.
TEST_F(HttpSessionTest, RedirectChainNeverStepsDownFromHttpsToHttp) {
  const testing::TemporaryDirectory keys;
  const auto cert = (keys.path() / "cert.pem").string(), key = (keys.path() / "key.pem").string();
  const auto made = testing::runToEnd(
      "/usr/bin/env",
      {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1",
       "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", cert},
      60.0);
  ASSERT_EQ(made.exitCode, 0) << made.errors;
  httplib::SSLServer tls(cert.c_str(), key.c_str());
  tls.set_keep_alive_max_count(1);
  tls.Post("/hop", [&](const httplib::Request&, httplib::Response& response) {
    response.status = 307;
    response.set_header("Location", server.url("/end"));
  });
  const auto tlsRoot = "https://127.0.0.1:" + std::to_string(tls.bind_to_any_port("127.0.0.1"));
  std::thread listener([&] { tls.listen_after_bind(); });
  server.setAnswer("/start", Answer::http(307).withHeader("Location", tlsRoot + "/hop"));
  server.setAnswer("/end", Answer::http(200, "in clear"));

  const auto trusting = CurlHttpSessionFactory(cert).makeSession({});
  std::vector<DataTaskResult> results;
  for (const auto& start : {server.url("/start"), tlsRoot + "/hop"}) {
    results.push_back(trusting->send({.url = start, .method = "POST", .body = "secret"}));
  }
  tls.stop();
  listener.join();

  for (const auto& result : results) {
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code(), HttpErrorCode::unsupportedURL) << result.error->detail();
    ASSERT_NE(result.httpResponse(), nullptr);
    EXPECT_EQ(result.httpResponse()->url, tlsRoot + "/hop");
    EXPECT_EQ(result.httpResponse()->statusCode, 307);
    EXPECT_FALSE(result.data);
  }
  EXPECT_TRUE(server.requests("/end").empty());
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

  ASSERT_EQ(completions.results.size(), 2u);
  for (const auto& result : completions.results) {
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
  EXPECT_EQ(completions.results.size(), 3u);
  late->resume();  // its session is gone
  ASSERT_TRUE(completions.waitFor(4));
  testPlatform().pool->waitIdle();

  ASSERT_EQ(completions.results.size(), 4u);
  for (const auto& result : completions.results) EXPECT_EQ(result.error->code(), HttpErrorCode::cancelled);
  for (const auto& thread : completions.threads) EXPECT_NE(thread, std::this_thread::get_id());
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
  EXPECT_EQ(completions.results[0].httpResponse()->statusCode, 200);
  ASSERT_TRUE(nested && nested->error);
  EXPECT_EQ(nested->error->code(), HttpErrorCode::cancelled);
}

// OpenSSL writes to its sockets without MSG_NOSIGNAL; on the session's thread
// such a write to a connection the peer closed must fail, not kill the host.
TEST_F(HttpSessionTest, WritesToAClosedSocketOnTheSessionThreadRaiseNoSignal) {
  Completions completions;
  ssize_t written = 0;
  int writeError = 0;
  session
      ->dataTask(get("/s"),
                 [&](DataTaskResult result) {
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
  EXPECT_EQ(written, -1);
  EXPECT_EQ(writeError, EPIPE);
}

}  // namespace
}  // namespace kiv
