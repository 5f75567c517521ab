// kivfll run against the sandbox, as a backend team runs it: the JSON lines
// and the exit status a script sees, and what the backend received.
#include <gtest/gtest.h>

#include <csignal>

#include "base/json.hpp"
#include "sandbox/sandbox_server.hpp"
#include "support/child_process.hpp"

namespace kiv::testing {
namespace {

constexpr const char* kProgram = KIVFLL_PROGRAM;
constexpr double kBoundSeconds = 30.0;

class RunTest : public ::testing::Test {
 protected:
  RunTest() : sandbox_(std::move(sandbox::SandboxServer::start({}).value())) {
    token_ = sandbox_->mintMobileToken("client-e2e", std::string("eu.capture.example"));
  }

  // kivfll run --json against the sandbox, in this test's data directory.
  ChildEnd run(std::vector<std::string> extra, const std::string& person = "person-1") {
    std::vector<std::string> arguments{
        "run",    "--backend",  sandbox_->rootURL(),  "--token", token_, "--person", person,
        "--json", "--data-dir", data_.path().string()};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return runToEnd(kProgram, arguments, kBoundSeconds);
  }
  void fault(const std::string& rule) { ASSERT_TRUE(sandbox_->addFault(rule).has_value()) << rule; }

  // Each standard-output line as JSON; a line that is not JSON fails.
  static std::vector<Json> calls(const ChildEnd& end) {
    std::vector<Json> out;
    std::size_t start = 0;
    while (start < end.output.size()) {
      auto stop = end.output.find('\n', start);
      if (stop == std::string::npos) stop = end.output.size();
      auto line = json::parse(end.output.substr(start, stop - start));
      EXPECT_TRUE(line) << end.output.substr(start, stop - start);
      if (line) out.push_back(*line);
      start = stop + 1;
    }
    return out;
  }
  // The one outcome call, after loading/loaded.
  static Json outcome(const ChildEnd& end) {
    for (const auto& call : calls(end)) {
      if (call.value("call", "") != "loading" && call.value("call", "") != "loaded") return call;
    }
    return Json();
  }
  std::vector<Json> analytics(std::string_view event, std::string_view path = "bff/track-analytics") const {
    std::vector<Json> out;
    for (const auto& request : sandbox_->requests({.path = std::string(path)})) {
      auto body = json::parse(request.body);
      if (body && body->is_object() && body->value("event", "") == event) out.push_back(*body);
    }
    return out;
  }

  std::unique_ptr<sandbox::SandboxServer> sandbox_;
  std::string token_;
  TemporaryDirectory data_;
};

TEST_F(RunTest, SuccessCarriesASignedResponseTheSandboxKeyVerifies) {
  const auto end = run({});
  ASSERT_FALSE(end.hung);
  EXPECT_EQ(end.exitCode, 0) << end.errors;
  std::vector<std::string> names;
  for (const auto& call : calls(end)) names.push_back(call.value("call", ""));
  EXPECT_EQ(names, (std::vector<std::string>{"loading", "loaded", "didFinishWithSuccess", "loaded"}));
  const auto signedResponse = outcome(end).value("signedResponse", "");
  const auto key = sandbox::parsePublicKey(sandbox_->publicKey());
  ASSERT_TRUE(key);
  const auto claims = sandbox::verifyCompactJws(signedResponse, *key);
  ASSERT_TRUE(claims) << claims.error();
  EXPECT_EQ(json::parse(*claims)->value("personId", ""), "person-1");
  // The transaction and the attempt's events reached the backend before exit.
  EXPECT_EQ(sandbox_->requests({.path = "bff/transactions"}).size(), 1u);
  EXPECT_EQ(analytics("sdk_result").size(), 1u);
  EXPECT_EQ(analytics("start_sdk").at(0)["properties"]["requestParams"]["usedPrewarm"], false);
}

struct Row {
  const char* name;
  const char* fault;  // a sandbox fault rule for the session, or ""
  std::vector<std::string> arguments;
  int exitCode;
  const char* type;
  const char* description;  // "" when only the type is fixed
};

class RunOutcomes : public RunTest, public ::testing::WithParamInterface<Row> {};

TEST_P(RunOutcomes, ExitAndReportAsTheDelegateHeardIt) {
  const auto& row = GetParam();
  if (*row.fault) fault(row.fault);
  const auto end = run(row.arguments);
  ASSERT_FALSE(end.hung);
  EXPECT_EQ(end.exitCode, row.exitCode) << end.output << end.errors;
  const auto call = outcome(end);
  EXPECT_EQ(call.value("type", ""), row.type) << call.dump();
  if (*row.description) {
    EXPECT_EQ(call.value("description", ""), row.description) << call.dump();
  }
}

// One row per way an attempt ends, each with its exit status; which answer
// or vendor status maps to which type is pinned by the flow's own tests.
INSTANTIATE_TEST_SUITE_P(
    , RunOutcomes,
    ::testing::Values(
        Row{"SessionRefused",
            R"({"endpoint":"sessions","status":422,"body":"{\"message\":\"Client blocked\"}"})",
            {},
            2,
            "tokenException",
            "Client blocked"},
        Row{"FailureWithReasons",
            "",
            {"--capture", "connected; failure eyes_closed too_dark"},
            1,
            "eyes_closed",
            "Eyes closed"},
        Row{"Cancelled", "", {"--capture", "connected; canceled"}, 3, "", ""},
        Row{"CameraDenied", "", {"--camera", "denied"}, 2, "cameraPermission", "Camera permission denied"},
        Row{"CameraRefusedWhenAsked", "", {"--camera", "ask-deny"}, 2, "cameraPermission", "Camera permission denied"},
        Row{"CameraGrantedWhenAsked", "", {"--camera", "ask-grant"}, 0, "", ""}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(RunTest, EventsQueuedOfflineAreResentByTheNextRun) {
  fault(R"({"endpoint":"analytics","status":503,"times":1000})");
  ASSERT_EQ(run({}).exitCode, 0);
  const auto failedFinish = analytics("sdk_result");
  ASSERT_EQ(failedFinish.size(), 1u);  // answered 503, so queued
  sandbox_->clearFaults();

  ASSERT_EQ(run({}).exitCode, 0);
  ASSERT_FALSE(analytics("no_connection").empty()) << "no recovery notice";
  int resent = 0;
  for (const auto& body : analytics("sdk_result")) resent += body["properties"].value("resent", false) ? 1 : 0;
  EXPECT_EQ(resent, 1);
}

TEST_F(RunTest, ACrashIsReportedByTheNextRun) {
  fault(R"({"endpoint":"crashlytics","status":503,"times":1000})");
  const auto crashed = run({"--simulate-crash", "SIGSEGV"});
  ASSERT_FALSE(crashed.hung);
  if (kSanitized) {
    EXPECT_TRUE(endedAsCrash(crashed)) << crashed.errors;
  } else {
    EXPECT_EQ(crashed.exitSignal, SIGSEGV) << crashed.errors;  // the signal itself, not std::terminate
  }
  sandbox_->clearFaults();
  const auto before = sandbox_->requests({.path = "bff/crashlytics"}).size();

  ASSERT_EQ(run({}).exitCode, 0);
  const auto reports = sandbox_->requests({.path = "bff/crashlytics"});
  ASSERT_EQ(reports.size(), before + 1);
  EXPECT_EQ(json::parse(reports.back().body)->at("properties").value("result", ""), "signal");
}

TEST_F(RunTest, ABackendsTextReachesTheTerminalEscaped) {
  // Would retitle the window and clear the screen.
  fault(R"({"endpoint":"sessions","status":422,"body":"{\"message\":\"\\u001b]2;owned\\u0007\\u001b[2J\"}"})");
  const auto end = runToEnd(kProgram,
                            {"run", "--backend", sandbox_->rootURL(), "--token", token_, "--person", "p-1",
                             "--data-dir", data_.path().string()},
                            kBoundSeconds);
  EXPECT_EQ(end.exitCode, 2) << end.errors;
  EXPECT_EQ(end.output.find('\x1b'), std::string::npos) << end.output;
  EXPECT_NE(end.output.find(R"(description: "\x1b]2;owned\x07\x1b[2J")"), std::string::npos) << end.output;
}

}  // namespace
}  // namespace kiv::testing
