#include "kiv/testing/capture_script.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace kiv {
namespace {

std::string text(const std::string& value) {
  std::string out = "\"";
  for (char c : value) out += (c == '"' || c == '\\') ? std::string{'\\', c} : std::string{c};
  return out + "\"";
}

// A parsed script in canonical text form, so a case states all it produced.
std::string render(const CaptureScript& script) {
  std::ostringstream out;
  for (const auto& step : script.steps) {
    if (out.tellp() > 0) out << "; ";
    if (const auto* pause = std::get_if<CaptureScript::Wait>(&step)) {
      out << "wait " << pause->seconds;
      continue;
    }
    if (const auto* deliver = std::get_if<CaptureScript::Deliver>(&step)) {
      out << "deliver " << (deliver->thread == CaptureScript::Thread::main ? "main" : "vendor");
      continue;
    }
    if (std::holds_alternative<CaptureScript::Dismiss>(step)) {
      out << "dismiss";
      continue;
    }
    const auto& report = std::get<CaptureScript::Report>(step);
    const auto& status = report.status;
    out << (report.sync ? "sync " : "") << (report.evenIfCancelled ? "force " : "") << status.name();
    if (const auto* p = status.as<Status::processing>()) out << " " << p->progress << " " << text(p->message);
    if (const auto* f = status.as<Status::failure>()) {
      for (const auto& reason : f->result.reasons)
        out << " " << reason.feedbackCode << " " << text(reason.localizedDescription);
    }
    if (const auto* c = status.as<Status::canceled>()) out << " " << rawValue(c->canceler);
    if (const auto* e = status.as<Status::error>()) {
      out << " " << rawValue(e->iProovError.code());
      if (const auto& description = e->iProovError.errorDescription()) out << " " << text(*description);
    }
  }
  if (!script.dismissAtEnd) out << "; nodismiss";
  return out.str();
}

struct ScriptCase {
  std::string name;
  std::string text;
  std::string expected;  // the canonical form, or the error message
};
void PrintTo(const ScriptCase& c, std::ostream* os) { *os << c.name; }
auto byName = [](const auto& testInfo) { return testInfo.param.name; };

class ValidScript : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(ValidScript, ParsesToItsSteps) {
  auto script = CaptureScript::parse(GetParam().text);
  ASSERT_TRUE(script.has_value()) << script.error();
  EXPECT_EQ(render(*script), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, ValidScript,
    ::testing::Values(ScriptCase{"LinesBlanksAndEmptySteps",
                                 " connecting ;\n\n\tprocessing 0.25 \"Hold still\";wait 0;;processing 1;\n",
                                 R"(connecting; processing 0.25 "Hold still"; wait 0; processing 1 "")"},
                      // Codes the SDK does not know, or writes in another case, still reach it.
                      ScriptCase{"ReasonsWithAndWithoutTexts", R"(failure too_dark "Find light" TOO_DARK x9)",
                                 R"(failure too_dark "Find light" TOO_DARK "TOO DARK" x9 "X9")"},
                      ScriptCase{"TextWithEscapesAndSeparators", R"(error network "Lost \"it\"; a\\b")",
                                 R"(error network "Lost \"it\"; a\\b")"},
                      ScriptCase{
                          "AMisbehavingVendor",
                          "sync connecting; sync connected; deliver vendor; dismiss; wait 1; force canceled; "
                          "then error network \"late\"; then deliver main; nodismiss; then wait 0.5; then success",
                          R"(sync connecting; sync connected; deliver vendor; dismiss; wait 1; force canceled user; )"
                          R"(error network "late"; deliver main; wait 0.5; success; nodismiss)"}),
    byName);

class InvalidScript : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(InvalidScript, IsRefusedWithAMessageNamingTheStep) {
  auto script = CaptureScript::parse(GetParam().text);
  ASSERT_FALSE(script.has_value()) << render(*script);
  EXPECT_EQ(script.error(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, InvalidScript,
    ::testing::Values(
        ScriptCase{"NoSteps", " ;\n ; ", "the script has no steps"},
        ScriptCase{"UnknownStep", "connected; Wait 2",
                   R"(step 2 ("Wait 2"): unknown step "Wait"; expected wait, connecting, connected, processing, )"
                   "success, failure, canceled, error, deliver, dismiss or nodismiss"},
        ScriptCase{"WaitLongerThanADay", "wait 1e10", R"(step 1 ("wait 1e10"): "1e10": a pause is at most a day)"},
        ScriptCase{"UnclosedText", "connected\nfailure eyes_closed \"Open",
                   R"(step 2 ("failure eyes_closed \"Open"): a text is not closed by ")"},
        ScriptCase{"UnknownEscape", R"(error network "a\nb")",
                   R"(step 1 ("error network \"a\\nb\""): only \" and \\ may follow a backslash in a text)"}),
    byName);

// Refused too; the message of each names its step like the ones above.
TEST(CaptureScriptParse, EveryMalformedStepIsRefused) {
  for (const char* text : {"wait 2s", "wait -1", "processing 1.5", R"(failure "Eyes closed")", "error Network",
                           "then connected; success", "connected; sync success", "deliver ui; success"}) {
    const auto script = CaptureScript::parse(text);
    ASSERT_FALSE(script.has_value()) << text;
    EXPECT_TRUE(script.error().starts_with("step ")) << script.error();
  }
}

}  // namespace
}  // namespace kiv
