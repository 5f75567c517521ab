#include "sandbox/sandbox_server.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include "base/json.hpp"

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

  httplib::Result addFault(const std::string& rule) const {
    return client().Post("/_sandbox/faults", rule, "application/json");
  }

  std::unique_ptr<SandboxServer> sandbox;
  std::string token;
};

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
