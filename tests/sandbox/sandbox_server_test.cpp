#include "sandbox/sandbox_server.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include "base/json.hpp"
#include "service/session_format.hpp"

namespace kiv::sandbox {
namespace {

constexpr const char* kSessionsTarget = "/bff/sessions?asyncAttempt=true";

std::string sessionBody(std::string_view personId) {
  return R"({"personId":")" + std::string(personId) + R"(","sdk":{"version":"3.2.1","platform":"iOS"}})";
}

class SandboxServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto started = SandboxServer::start({});
    ASSERT_TRUE(started) << started.error();
    sandbox = std::move(*started);
    token = sandbox->mintMobileToken("client-7");
  }

  httplib::Client client() const {
    httplib::Client http("127.0.0.1", sandbox->port());
    http.set_read_timeout(std::chrono::seconds(30));
    return http;
  }

  httplib::Result post(const std::string& target, const std::string& body, bool authorized = true) const {
    httplib::Headers headers;
    if (authorized) headers.emplace("Authorization", token);
    return client().Post(target.c_str(), headers, body, "application/json");
  }

  // A session for `personId`, decoded as the SDK decodes it.
  SessionResponse session(std::string_view personId) const {
    auto answer = post(kSessionsTarget, sessionBody(personId));
    EXPECT_TRUE(answer && answer->status == 200);
    auto decoded = SessionResponse::decode(json::parse(answer ? answer->body : "{}").value_or(Json::object()));
    EXPECT_TRUE(decoded);
    return decoded.value_or(SessionResponse{});
  }

  httplib::Result addFault(const std::string& rule) const {
    return client().Post("/_sandbox/faults", rule, "application/json");
  }

  std::unique_ptr<SandboxServer> sandbox;
  std::string token;
};

// The signed response's claims are checked by the end-to-end runs.
TEST_F(SandboxServerTest, SessionHasEveryFieldAndNeedsAToken) {
  const auto minted = session("p-1");
  ASSERT_TRUE(minted.id && minted.livenessAttemptId && minted.signedResponse && minted.supplier && minted.user);
  EXPECT_TRUE(minted.user->userId && minted.supplier->settings && minted.supplier->settings->filter &&
              minted.remainingAttempts && !minted.supplier->token.value_or("").empty());
  EXPECT_EQ(std::tuple(minted.clientId.value_or(""), minted.user->personId.value_or(""),
                       minted.supplier->type.value_or(""), minted.hasFingerprint.value_or(true)),
            std::tuple("client-7", "p-1", "iproov", false));
  EXPECT_EQ(minted.sdk, (SessionSdk{"3.2.1", "iOS"}));
  EXPECT_TRUE(minted.createdAt && minted.expiredAt && *minted.createdAt < *minted.expiredAt);

  EXPECT_NE(session("p-1").id, minted.id);
  EXPECT_EQ(post(kSessionsTarget, sessionBody("p-1"), false)->status, 401);
}

TEST_F(SandboxServerTest, FaultsSpoilOnlyTheirTargetForTheirTimesUntilCleared) {
  EXPECT_EQ(addFault(R"({"endpoint":"sessions","stauts":500})")->status, 400);
  ASSERT_EQ(addFault(R"({"endpoint":"sessions","personId":"p-422","status":422,"body":"no","times":1})")->status, 201);
  ASSERT_EQ(addFault(R"({"endpoint":"analytics","status":503})")->status, 201);

  EXPECT_EQ(post(kSessionsTarget, sessionBody("p-1"))->status, 200);
  const auto spoiled = post(kSessionsTarget, sessionBody("p-422"));
  EXPECT_EQ(spoiled->status, 422);
  EXPECT_EQ(spoiled->body, "no");
  EXPECT_EQ(post(kSessionsTarget, sessionBody("p-422"))->status, 200);  // used up
  for (const char* path : {"/bff/track-analytics", "/bff/identify-analytics", "/bff/crashlytics"}) {
    EXPECT_EQ(post(path, "{}")->status, 503) << path;
  }
  EXPECT_EQ(client().Delete("/_sandbox/faults")->body, R"({"cleared":1})");
  for (const char* path : {"/bff/track-analytics", "/bff/identify-analytics", "/bff/crashlytics"}) {
    const auto answer = post(path, R"({"userId":"p-1","event":"start_sdk"})", false);
    EXPECT_EQ(answer->status, 200) << path;
    EXPECT_EQ(answer->body, "{}") << path;
  }
}

TEST_F(SandboxServerTest, DropFaultSendsNoAnswerAndIsRecordedAsDropped) {
  ASSERT_TRUE(addFault(R"({"endpoint":"sessions","drop":true,"times":1})"));
  EXPECT_FALSE(post(kSessionsTarget, sessionBody("p-1")));
  const auto recorded = sandbox->requests();
  ASSERT_EQ(recorded.size(), 1u);
  EXPECT_EQ(recorded[0].status, std::nullopt);
  EXPECT_NE(recorded[0].outcome.find("dropped"), std::string::npos);
  EXPECT_EQ(post(kSessionsTarget, sessionBody("p-1"))->status, 200);
}

TEST_F(SandboxServerTest, RequestsThatAreNotUtf8AreKeptAndListedWithTheBadBytesReplaced) {
  EXPECT_EQ(client().Post("/bff/%FF", "{}", "application/json")->status, 404);
  EXPECT_EQ(post("/bff/track-analytics", "{\"event\":\"\xff\"}")->status, 200);
  EXPECT_EQ(client().Post("/bff/crashlytics", {{"X-Name", "caf\xe9"}}, "{}", "application/json")->status, 200);

  const auto listing = client().Get("/_sandbox/requests");
  ASSERT_EQ(listing->status, 200);
  const auto list = json::parse(listing->body).value_or(Json());
  ASSERT_EQ(list.size(), 3u) << listing->body;
  EXPECT_EQ(list[0]["path"], "/bff/\uFFFD");
  EXPECT_EQ(list[1]["body"], "{\"event\":\"\uFFFD\"}");
  EXPECT_EQ(list[2]["headers"]["X-Name"], "caf\uFFFD");
}

}  // namespace
}  // namespace kiv::sandbox
