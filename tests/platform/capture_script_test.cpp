#include "platform/capture/capture_script.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace kiv {
namespace {

std::string quotedText(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// Writes a parsed script back in its canonical text form, so that a case
// states everything the parser produced.
std::string render(const CaptureScript& script) {
  std::ostringstream out;
  for (std::size_t i = 0; i < script.steps.size(); ++i) {
    if (i > 0) out << "; ";
    const auto& step = script.steps[i];
    if (const auto* pause = std::get_if<CaptureScript::Wait>(&step)) {
      out << "wait " << pause->seconds;
      continue;
    }
    const auto& status = std::get<Status>(step);
    out << status.name();
    if (const auto* processing = status.as<Status::processing>()) {
      out << " " << processing->progress << " " << quotedText(processing->message);
    } else if (const auto* failure = status.as<Status::failure>()) {
      for (const auto& reason : failure->result.reasons) {
        out << " " << reason.feedbackCode << " " << quotedText(reason.localizedDescription);
      }
    } else if (const auto* canceled = status.as<Status::canceled>()) {
      out << " " << rawValue(canceled->canceler);
    } else if (const auto* error = status.as<Status::error>()) {
      out << " " << rawValue(error->iProovError.code());
      if (const auto& description = error->iProovError.errorDescription()) out << " " << quotedText(*description);
    }
  }
  return out.str();
}

struct ScriptCase {
  std::string name;
  std::string text;
  std::string expected;  // the canonical form, or the error message
};
void PrintTo(const ScriptCase& c, std::ostream* os) { *os << c.name; }
auto caseName = [](const auto& info) { return info.param.name; };

class ValidScript : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(ValidScript, ParsesToItsSteps) {
  auto script = CaptureScript::parse(GetParam().text);
  ASSERT_TRUE(script.has_value()) << script.error();
  EXPECT_EQ(render(*script), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, ValidScript,
    ::testing::Values(ScriptCase{"FailureAfterAPause", "connected; wait 2; failure eyes_closed",
                                 R"(connected; wait 2; failure eyes_closed "Eyes closed")"},
                      ScriptCase{"LinesBlanksAndEmptySteps",
                                 " connecting ;\n\n connected;\tprocessing 0.25 \"Hold still\";wait 0.5;;success;\n",
                                 R"(connecting; connected; processing 0.25 "Hold still"; wait 0.5; success)"},
                      ScriptCase{"ProgressBoundsAndZeroPause", "processing 0; processing 1; wait 0; success",
                                 R"(processing 0 ""; processing 1 ""; wait 0; success)"},
                      ScriptCase{"FailureWithoutReasons", "failure", "failure"},
                      // Codes the SDK does not know, or writes in another case, still reach it.
                      ScriptCase{"SeveralReasonsWithAndWithoutTexts",
                                 R"(failure too_dark "Find some light" TOO_DARK x9)",
                                 R"(failure too_dark "Find some light" TOO_DARK "TOO DARK" x9 "X9")"},
                      ScriptCase{"CanceledByTheUserUnlessSaid", "canceled", "canceled user"},
                      ScriptCase{"CanceledByTheIntegration", "canceled integration", "canceled integration"},
                      ScriptCase{"ErrorWithoutDescription", "error notSupported", "error notSupported"},
                      ScriptCase{"ErrorTextWithEscapesAndSeparators", R"(error network "Lost \"it\"; a\\b")",
                                 R"(error network "Lost \"it\"; a\\b")"},
                      ScriptCase{"NoFinalStatus", "connected", "connected"}),
    caseName);

class InvalidScript : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(InvalidScript, IsRefusedWithAClearMessage) {
  auto script = CaptureScript::parse(GetParam().text);
  ASSERT_FALSE(script.has_value()) << render(*script);
  EXPECT_EQ(script.error(), GetParam().expected);
}

const std::string kErrorCodes =
    "network, server, unexpected, captureAlreadyActive, cameraPermissionDenied, userTimeout, notSupported, "
    "invalidOptions, cameraUnavailable";

INSTANTIATE_TEST_SUITE_P(
    Scripts, InvalidScript,
    ::testing::Values(
        ScriptCase{"Empty", "", "the script has no steps"},
        ScriptCase{"OnlySeparators", " ;\n ; ", "the script has no steps"},
        ScriptCase{"UnknownStep", "connected; wiat 2",
                   "step 2 (\"wiat 2\"): unknown step \"wiat\"; expected wait, connecting, connected, processing, "
                   "success, failure, canceled or error"},
        ScriptCase{"StepNamesAreCaseSensitive", "Connected",
                   "step 1 (\"Connected\"): unknown step \"Connected\"; expected wait, connecting, connected, "
                   "processing, success, failure, canceled or error"},
        ScriptCase{"WaitWithoutSeconds", "wait", "step 1 (\"wait\"): wait needs a number of seconds"},
        ScriptCase{"WaitWithAWord", "wait soon", "step 1 (\"wait soon\"): \"soon\" is not a number of seconds"},
        ScriptCase{"WaitWithAUnit", "wait 2s", "step 1 (\"wait 2s\"): \"2s\" is not a number of seconds"},
        ScriptCase{"WaitForever", "wait inf", "step 1 (\"wait inf\"): \"inf\" is not a number of seconds"},
        ScriptCase{"NegativeWait", "wait -1", "step 1 (\"wait -1\"): \"-1\": a pause cannot be negative"},
        ScriptCase{"WaitWithTwoNumbers", "wait 2 3", "step 1 (\"wait 2 3\"): unexpected \"3\""},
        ScriptCase{"ProgressAboveOne", "processing 1.5",
                   "step 1 (\"processing 1.5\"): \"1.5\" is not a progress from 0 to 1"},
        ScriptCase{"ProgressMissing", "processing", "step 1 (\"processing\"): processing needs a progress from 0 to 1"},
        ScriptCase{"ArgumentToSuccess", "success now", "step 1 (\"success now\"): unexpected \"now\""},
        ScriptCase{"DescriptionBeforeCode", R"(failure "Eyes closed")",
                   R"(step 1 ("failure \"Eyes closed\""): a description must follow a feedback code)"},
        ScriptCase{"CodeWithAHyphen", "failure eyes-closed",
                   "step 1 (\"failure eyes-closed\"): \"eyes-closed\" is not a feedback code"},
        ScriptCase{"UnknownCanceler", "canceled host",
                   "step 1 (\"canceled host\"): \"host\" is not a canceler; expected user or integration"},
        ScriptCase{"ErrorWithoutCode", "error", "step 1 (\"error\"): error needs an IProovError code: " + kErrorCodes},
        ScriptCase{
            "ErrorCodesAreCaseSensitive", "error Network",
            "step 1 (\"error Network\"): \"Network\" is not an IProovError code; expected one of " + kErrorCodes},
        ScriptCase{"ErrorWithTwoTexts", R"(error server "a" "b")",
                   R"(step 1 ("error server \"a\" \"b\""): unexpected "b")"},
        ScriptCase{"StepAfterTheFinalStatus", "connected; success; connected",
                   "step 3 (\"connected\"): nothing may follow the final status success"},
        ScriptCase{"PauseAfterTheFinalStatus", "error server\nwait 1",
                   "step 2 (\"wait 1\"): nothing may follow the final status error"},
        ScriptCase{"UnclosedText", "connected\nfailure eyes_closed \"Open your eyes",
                   R"(step 2 ("failure eyes_closed \"Open your eyes"): a text is not closed by ")"},
        ScriptCase{"UnknownEscape", R"(error network "a\nb")",
                   R"(step 1 ("error network \"a\\nb\""): only \" and \\ may follow a backslash in a text)"},
        ScriptCase{"TextInsteadOfAName", R"("connected")",
                   R"(step 1 ("\"connected\""): a step starts with its name, not with a text)"}),
    caseName);

}  // namespace
}  // namespace kiv
