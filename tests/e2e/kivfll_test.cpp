// The kivfll program as a person or a script runs it: what it prints, how it
// exits, and what the sandbox it runs receives.
#include <gtest/gtest.h>
#include <httplib.h>

#include <csignal>

#include "base/json.hpp"
#include "sandbox/request_log.hpp"
#include "sandbox/sandbox_server.hpp"
#include "service/jwt_decoder.hpp"
#include "support/child_process.hpp"
#include "support/running_child.hpp"

namespace kiv::testing {
namespace {

constexpr const char* kProgram = KIVFLL_PROGRAM;
constexpr double kBoundSeconds = 30.0;
constexpr std::string_view kListening = "sandbox listening on http://127.0.0.1:";
constexpr std::string_view kPublicKey = "public key: ";

ChildEnd kivfll(const std::vector<std::string>& arguments) { return runToEnd(kProgram, arguments, kBoundSeconds); }

std::string withoutLineBreak(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

class UsageError : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(UsageError, Exits64WithAMessageOnStandardError) {
  const auto end = kivfll(GetParam());
  ASSERT_FALSE(end.hung);
  EXPECT_EQ(end.exitCode, 64);
  EXPECT_FALSE(end.errors.empty());
  // A run's own checks of its options say what is wrong in one line.
  if (!GetParam().empty() && GetParam()[0] == "run") {
    EXPECT_EQ(std::count(end.errors.begin(), end.errors.end(), '\n'), 1) << end.errors;
  }
  EXPECT_TRUE(end.output.empty()) << end.output;
}

using Words = std::vector<std::string>;
const Words kRun{"run", "--token", "t", "--person", "p", "--backend"};
Words run(Words extra) {
  extra.insert(extra.begin(), kRun.begin(), kRun.end());
  return extra;
}

INSTANTIATE_TEST_SUITE_P(Table, UsageError,
                         ::testing::Values(Words{}, Words{"frobnicate"}, Words{"token"},
                                           Words{"sandbox", "--port", "70000"},
                                           Words{"sandbox", "--port", "0", "--db", ""}, run({"ftp://x"}),
                                           run({"http://127.0.0.1:1/", "--capture", "wait soon"}),
                                           run({"http://127.0.0.1:1/", "--simulate-crash", "SIGWINCH"}),
                                           run({"http://127.0.0.1:1/", "--data-dir", "/proc/kivfll-cannot-be-here"})));

TEST(Kivfll, SandboxServesRecordsAndSignsUntilSigterm) {
  TemporaryDirectory scratch;
  const std::string database = (scratch.path() / "requests.db").string();
  RunningChild sandbox(kProgram, {"sandbox", "--port", "0", "--db", database});
  ASSERT_TRUE(sandbox.started());

  const auto listening = sandbox.readLine();
  ASSERT_TRUE(listening && listening->starts_with(kListening)) << listening.value_or("(nothing)");
  const int port = std::stoi(listening->substr(kListening.size()));
  const auto keyLine = sandbox.readLine();
  ASSERT_TRUE(keyLine && keyLine->starts_with(kPublicKey));
  const std::string key = keyLine->substr(kPublicKey.size());

  const auto token =
      withoutLineBreak(kivfll({"token", "--iss", "client-9", "--service-location", "eu.capture.example"}).output);
  EXPECT_EQ(KivJWTDecoder::serviceLocation(token), "eu.capture.example");
  httplib::Client client("127.0.0.1", port);
  const auto answer =
      client.Post("/bff/sessions?asyncAttempt=true", {{"Authorization", token}},
                  R"({"personId":"p-1","sdk":{"version":"3.2.1","platform":"iOS"}})", "application/json");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  const auto session = json::parse(answer->body);
  ASSERT_TRUE(session);
  EXPECT_EQ(session->at("clientId"), "client-9");
  const auto requestLine = sandbox.readLine();
  ASSERT_TRUE(requestLine);
  EXPECT_NE(requestLine->find("POST /bff/sessions?asyncAttempt=true -> 200"), std::string::npos) << *requestLine;

  const std::string signedResponse = session->at("signedResponse");
  const auto valid = kivfll({"verify", signedResponse, "--key", key});
  EXPECT_EQ(valid.exitCode, 0) << valid.errors;
  EXPECT_EQ(json::parse(valid.output).value_or(Json::object())["sessionId"], session->at("id"));

  std::string tampered = signedResponse;
  char& c = tampered[tampered.find('.') + 3];
  c = c == 'A' ? 'B' : 'A';
  const auto invalid = kivfll({"verify", tampered, "--key", key});
  EXPECT_EQ(invalid.exitCode, 1);

  sandbox.signal(SIGTERM);
  const auto end = sandbox.wait(kBoundSeconds);
  ASSERT_FALSE(end.hung);
  EXPECT_EQ(end.exitSignal, 0);
  EXPECT_EQ(end.exitCode, 0) << end.errors;

  auto log = sandbox::RequestLog::open(database);
  ASSERT_TRUE(log);
  const auto recorded = (*log)->requests();
  ASSERT_EQ(recorded.size(), 1u);
  EXPECT_EQ(recorded[0].header("authorization"), token);
}

TEST(Kivfll, SandboxOnATakenPortIsAnError) {
  auto holder = sandbox::SandboxServer::start({});
  ASSERT_TRUE(holder);
  const auto end = kivfll({"sandbox", "--port", std::to_string((*holder)->port())});
  ASSERT_FALSE(end.hung);
  EXPECT_EQ(end.exitCode, 2);
  EXPECT_NE(end.errors.find(std::to_string((*holder)->port())), std::string::npos) << end.errors;
}

}  // namespace
}  // namespace kiv::testing
