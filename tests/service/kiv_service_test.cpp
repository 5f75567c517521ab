#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <variant>

#include "kiv/backend.hpp"
#include "platform/http/scripted_http_session.hpp"
#include "service/key_chain_manager.hpp"
#include "service/kiv_service.hpp"
#include "support/analytics_configuration.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

using testing::Answer;
using testing::RecordingHttpServer;
using namespace std::chrono_literals;

const std::string kToken = "eyJ0b2tlbi.payload.sig";
const std::string kNotInFormat = "The data couldn\u2019t be read because it isn\u2019t in the correct format.";

// The first completion of one request with the thread it ran on, and how
// many completions came.
template <typename T>
struct Outcome {
  std::promise<std::pair<APIResult<T>, std::thread::id>> first;
  std::atomic<int> calls{0};

  std::function<void(APIResult<T>)> completion() {
    return [this](APIResult<T> result) {
      if (calls++ == 0) first.set_value({std::move(result), std::this_thread::get_id()});
    };
  }
};

template <typename T>
std::optional<APIServiceError> errorOf(const APIResult<T>& result) {
  return result ? std::nullopt : std::optional(result.error());
}

class KivServiceTest : public testing::PlatformTest {
 protected:
  void storeToken(const std::string& token) {
    KivKeyChainManager::shared()->save(kKivSDKService, kMobileTokenKey, asBytes(token), true);
  }

  std::shared_ptr<KivService> makeService(std::shared_ptr<HttpSession> session = KivService::makeURLSession()) {
    session_ = session;
    return KivService::create(std::move(session), std::string(kMobileTokenKey), analytics);
  }

  // The one completion, which ran off the caller's thread.
  template <typename T>
  APIResult<T> finish(Outcome<T>& outcome) {
    auto first = outcome.first.get_future();
    EXPECT_EQ(first.wait_for(30s), std::future_status::ready);
    // Ending the session runs any completion still pending, so a second one
    // would show in the count; the pool then has run the analytics hand-over.
    session_->invalidateAndCancel();
    testPlatform().pool->waitIdle();
    for (const auto& client : {analytics, KivBFFAnalytics::shared()}) {
      if (client) client->waitForPendingPosts();  // they end on the analytics session's thread
    }
    EXPECT_EQ(outcome.calls.load(), 1);
    if (outcome.calls.load() == 0) return std::unexpected(APIServiceError::networkError{"never completed"});
    auto [result, thread] = first.get();
    EXPECT_NE(thread, std::this_thread::get_id());
    return result;
  }

  APIResult<SessionResponse> fetchSession(const std::string& baseURL,
                                          std::shared_ptr<HttpSession> session = KivService::makeURLSession()) {
    Outcome<SessionResponse> outcome;
    makeService(std::move(session))
        ->fetchSession(FetchSessionRequest::forPerson(baseURL, "person-1"), outcome.completion());
    return finish(outcome);
  }

  APIResult<KivEmptyResponse> fetchTransactions(const SessionResponse& answered,
                                                std::shared_ptr<HttpSession> session = KivService::makeURLSession()) {
    Outcome<KivEmptyResponse> outcome;
    makeService(std::move(session))
        ->fetchTransactions(FetchTransactionsRequest::forSession(server.url(), answered), outcome.completion());
    return finish(outcome);
  }

  // Analytics posts reach the same server, as the dev stage's backend.
  void reportToServer() { ASSERT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url())); }
  // The properties of every api_response event the server received.
  std::vector<Json> reportedProperties() {
    std::vector<Json> out;
    for (const auto& request : server.requests("/bff/track-analytics")) {
      const auto body = request.bodyJson().value_or(Json::object());
      EXPECT_EQ(body.value("event", ""), "api_response");
      EXPECT_EQ(body.value("eventType", ""), "api_call");
      out.push_back(body.value("properties", Json::object()));
    }
    return out;
  }

  RecordingHttpServer server;
  std::shared_ptr<KivBFFAnalytics> analytics;  // none unless a test reports to its own client
  std::shared_ptr<HttpSession> session_;
};

// --- The requests as they reach the backend -------------------------------------

using Wire = std::tuple<std::string, std::string, std::string>;  // method, target, body
Wire wire(const testing::RecordedRequest& request) { return {request.method, request.target, request.body}; }

TEST_F(KivServiceTest, RequestsOnTheWire) {
  storeToken(kToken);
  server.setAnswer("/bff/sessions", Answer::json(200, R"({"id":"s-1","livenessAttemptId":"a-1","x":1})"));
  const auto session = fetchSession(server.url());
  ASSERT_TRUE(session) << session.error();
  ASSERT_TRUE(fetchTransactions(*session));
  ASSERT_TRUE(fetchTransactions(SessionResponse{}));

  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(wire(requests[0]), Wire("POST", "/bff/sessions?asyncAttempt=true",
                                    R"({"personId":"person-1","sdk":{"version":"3.2.1","platform":"iOS"}})"));
  EXPECT_EQ(wire(requests[1]), Wire("POST", "/bff/transactions/a-1/async", R"({"sessionId":"s-1","data":{}})"));
  EXPECT_EQ(wire(requests[2]), Wire("POST", "/bff/transactions//async", R"({"sessionId":"","data":{}})"));
  EXPECT_EQ(requests[0].header("Authorization"), kToken);  // bare, no scheme word
  // Every header of the built request (its list is pinned below) arrives as spelt.
  for (const auto& header : KivService::makeURLRequest(FetchSessionRequest::forPerson(server.url(), "p")).headers) {
    EXPECT_NE(std::ranges::find(requests[0].headers, header), requests[0].headers.end()) << header.name;
  }
  EXPECT_EQ(requests[1].header("content-type"), "application/json");
}

TEST_F(KivServiceTest, RequestIsBuiltInTheBackendsOrder) {
  const auto request = FetchSessionRequest::forPerson("https://b.example/", "p");
  makeService();
  EXPECT_EQ(KivService::makeURLRequest(request).value("Authorization"), std::nullopt);  // no token stored
  storeToken("first");
  KivKeyChainManager::shared()->save(kKivSDKService, "otherKey", asBytes("second"), true);
  KivService::create(session_, "otherKey", nullptr);  // the last service created names the key

  auto post = KivService::makeURLRequest(request);
  EXPECT_EQ(
      std::tuple(post.url, post.timeoutSeconds, post.cachePolicy),
      std::tuple("https://b.example/bff/sessions?asyncAttempt=true", 20.0, HttpCachePolicy::useProtocolCachePolicy));
  EXPECT_EQ(post.headers, (HttpHeaders{{"Cache-Control", "no-cache, no-store, must-revalidate"},
                                       {"Pragma", "no-cache"},
                                       {"Expires", "0"},
                                       {"Authorization", "second"},
                                       {"content-type", "application/json"}}));
}

// The attempt id goes into the path unchanged: dot segments are not folded
// away, and one that breaks the URL text stops the request before anything
// reaches the wire.
TEST_F(KivServiceTest, AttemptIdGoesIntoThePathAsItIs) {
  SessionResponse withAttempt;
  withAttempt.livenessAttemptId = "../x/./a%2Fb";
  ASSERT_TRUE(fetchTransactions(withAttempt));
  withAttempt.livenessAttemptId = "a b";
  EXPECT_EQ(errorOf(fetchTransactions(withAttempt)), APIServiceError{APIServiceError::invalidResponse{}});
  ASSERT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(server.requests().at(0).target, "/bff/transactions/../x/./a%2Fb/async");
}

// --- Classification of answers ---------------------------------------------------

enum class Kind { session, transactions };

struct AnswerCase {
  std::string name;
  Kind kind;
  // From the recording server, or scripted where no socket can give it.
  std::variant<Answer, DataTaskResult> answer;
  std::optional<APIServiceError> error;  // nullopt: success
};

void PrintTo(const AnswerCase& c, std::ostream* out) { *out << c.name; }

class AnswerClassificationTest : public KivServiceTest, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(AnswerClassificationTest, CompletesOnceWithTheClassifiedResult) {
  const auto& c = GetParam();
  auto session = KivService::makeURLSession();
  if (const auto* given = std::get_if<DataTaskResult>(&c.answer)) {
    session =
        std::make_shared<ScriptedHttpSessionFactory>([given](const HttpRequest&) { return *given; })->makeSession({});
  } else {
    server.setDefaultAnswer(std::get<Answer>(c.answer));
  }
  EXPECT_EQ(
      c.kind == Kind::session ? errorOf(fetchSession(server.url(), session)) : errorOf(fetchTransactions({}, session)),
      c.error);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, AnswerClassificationTest,
    ::testing::Values(
        AnswerCase{"ServerErrorIgnoresBody", Kind::session, Answer::json(500, R"({"message":"boom"})"),
                   APIServiceError::httpError{500, "Server Error"}},
        AnswerCase{"NotFoundKeepsBody", Kind::session, Answer::json(404, R"({"message":"x"})"),
                   APIServiceError::httpError{404, R"({"message":"x"})"}},
        AnswerCase{"NonUtf8BodyIsServerError", Kind::session, Answer::http(403, "\xff\xfe"),
                   APIServiceError::httpError{403, "Server Error"}},
        AnswerCase{"RedirectStatusIsHttpError", Kind::transactions, Answer::http(304),
                   APIServiceError::httpError{304, ""}},
        AnswerCase{"SessionEmptyBodyIsDecodingError", Kind::session, Answer::http(201),
                   APIServiceError::decodingError{kNotInFormat}},
        AnswerCase{"SessionNumberAtIdKeepsTheObject", Kind::session, Answer::json(200, R"({"id":7,"b":[true]})"),
                   APIServiceError::decodingError{R"({"id":7,"b":[true]})"}},
        AnswerCase{"SessionNullIsMissing", Kind::session, Answer::json(200, "null"),
                   APIServiceError::decodingError{"The data couldn\u2019t be read because it is missing."}},
        AnswerCase{"TransactionsEmptyBodySucceeds", Kind::transactions, Answer::http(201), std::nullopt},
        AnswerCase{"TransactionsListIsDecodingError", Kind::transactions, Answer::json(200, "[]"),
                   APIServiceError::decodingError{kNotInFormat}},
        AnswerCase{"TransactionsTextIsDecodingError", Kind::transactions, Answer::http(200, "OK"),
                   APIServiceError::decodingError{kNotInFormat}},
        AnswerCase{
            "CutOffAnswerKeepsItsStatus", Kind::session, Answer::cutOff(200, R"({"id")", 64),
            APIServiceError::httpError{200, HttpError(HttpErrorCode::networkConnectionLost).localizedDescription()}},
        AnswerCase{"DroppedConnectionIsInvalid", Kind::transactions, Answer::dropConnection(),
                   APIServiceError::invalidResponse{}},
        AnswerCase{"NotHttpIsInvalid", Kind::transactions,
                   DataTaskResult{.data = "{}", .response = NonHttpResponse{"x"}}, APIServiceError::invalidResponse{}},
        AnswerCase{"NoBodyAtAll", Kind::transactions, DataTaskResult{.response = HttpResponse{.statusCode = 200}},
                   APIServiceError::noData{}},
        AnswerCase{"ServerErrorBeforeNoBody", Kind::transactions,
                   DataTaskResult{.response = HttpResponse{.statusCode = 500}},
                   APIServiceError::httpError{500, "Server Error"}},
        AnswerCase{"ErrorWithoutResponseIsInvalid", Kind::transactions,
                   DataTaskResult{.data = "{}", .error = HttpError(HttpErrorCode::timedOut)},
                   APIServiceError::invalidResponse{}}),
    [](const auto& param) { return param.param.name; });

TEST_F(KivServiceTest, TextThatIsNoURLIsInvalidAndNeverSent) {
  reportToServer();
  KivBFFAnalytics::configure(
      testing::analyticsConfiguration("session-A"));  // no client of its own: the shared one hears

  auto result = fetchSession("http://bad host/");

  EXPECT_EQ(result.error(), APIServiceError{APIServiceError::invalidResponse{}});
  EXPECT_TRUE(server.requests("/bff/sessions").empty());
  const auto reported = reportedProperties();
  ASSERT_EQ(reported.size(), 1u);
  EXPECT_EQ(reported[0]["apiEndpoint"], "file:///error");
  EXPECT_EQ(reported[0]["responseCode"], "");
}

// --- The analytics hook ----------------------------------------------------------

TEST_F(KivServiceTest, EveryAnswerIsReportedWithItsFiveProperties) {
  reportToServer();
  // The service's own client hears, the shared one must not: each answer shows once.
  KivBFFAnalytics::configure(testing::analyticsConfiguration("session-A"));
  analytics = KivBFFAnalytics::make(testing::analyticsConfiguration("session-A"), KivKeyChainManager::shared());
  server.setAnswer("/bff/sessions", Answer::json(200, "{}"));
  server.setAnswer("/bff/transactions/a/async", Answer::http(201, "\xff\xff"));
  server.holdAnswers();
  Outcome<SessionResponse> session;
  makeService()->fetchSession(FetchSessionRequest::forPerson(server.url(), "p"), session.completion());
  ASSERT_TRUE(server.waitForRequests(1));
  clock().advance(0.25);
  server.releaseAnswers();
  ASSERT_TRUE(finish(session));

  SessionResponse withAttempt;
  withAttempt.livenessAttemptId = "a";
  ASSERT_FALSE(fetchTransactions(withAttempt));  // not JSON, reported all the same

  server.setAnswer("/bff/sessions", Answer::dropConnection());
  ASSERT_FALSE(fetchSession(server.url()));

  auto reported = reportedProperties();
  ASSERT_EQ(reported.size(), 3u);
  const auto five = [](const Json& properties) {
    Json picked = Json::object();
    for (const char* key : {"apiEndpoint", "responseCode", "responseTime", "responseData", "result"}) {
      if (properties.contains(key)) picked[key] = properties[key];
    }
    return picked;
  };
  EXPECT_EQ(five(reported[0]), (Json{{"apiEndpoint", server.url("/bff/sessions?asyncAttempt=true")},
                                     {"responseCode", "200"},
                                     {"responseTime", "0.25"},
                                     {"responseData", R"("e30=")"},
                                     {"result", "session"}}));
  EXPECT_EQ(five(reported[1]), (Json{{"apiEndpoint", server.url("/bff/transactions/a/async")},
                                     {"responseCode", "201"},
                                     {"responseTime", "0.0"},
                                     {"responseData", R"("\/\/8=")"},  // slashes escaped
                                     {"result", "transaction"}}));
  EXPECT_EQ(reported[2]["responseCode"], "");
  const std::string lost = HttpError(HttpErrorCode::networkConnectionLost).localizedDescription();
  EXPECT_TRUE(reported[2]["responseData"].get<std::string>().starts_with("Optional(" + lost))
      << reported[2]["responseData"];
  EXPECT_EQ(reported[2]["result"], "session");
}

}  // namespace
}  // namespace kiv
