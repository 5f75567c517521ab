#include "sandbox/fault_rules.hpp"

#include <gtest/gtest.h>

namespace kiv::sandbox {
namespace {

struct RefusedRule {
  const char* rule;
  const char* reason;  // a part of the reason given
};

class RefusedFaultRule : public ::testing::TestWithParam<RefusedRule> {};

TEST_P(RefusedFaultRule, SaysWhy) {
  const auto parsed = parseFaultRule(GetParam().rule);
  ASSERT_FALSE(parsed) << GetParam().rule;
  EXPECT_NE(parsed.error().find(GetParam().reason), std::string::npos) << parsed.error();
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusedFaultRule,
    ::testing::Values(RefusedRule{"[1]", "JSON object"}, RefusedRule{R"({"status":500})", "\"endpoint\" is required"},
                      RefusedRule{R"({"endpoint":"session","status":500})", "unknown endpoint \"session\""},
                      RefusedRule{R"({"endpoint":"sessions","stauts":500})", "unknown key \"stauts\""},
                      RefusedRule{R"({"endpoint":"sessions","status":99})", "\"status\" must be between 100"},
                      RefusedRule{R"({"endpoint":"sessions","status":"500"})", "whole number"},
                      RefusedRule{R"({"endpoint":"sessions","status":500,"times":0})", "\"times\""},
                      RefusedRule{R"({"endpoint":"sessions","delayMs":-1})", "\"delayMs\""},
                      RefusedRule{R"({"endpoint":"sessions","body":"x"})", "needs a \"status\""},
                      RefusedRule{R"({"endpoint":"sessions","drop":true,"status":500})", "\"drop\""},
                      RefusedRule{R"({"endpoint":"sessions"})", "changes nothing"}));

TEST(FaultRule, ReadsBackFromItsOwnJson) {
  const auto rule =
      parseFaultRule(R"({"endpoint":"analytics","personId":"p-1","times":2,"delayMs":5,"status":503,"body":"busy"})");
  ASSERT_TRUE(rule) << rule.error();
  EXPECT_FALSE(rule->endpoint);
  EXPECT_TRUE(rule->targets(SandboxEndpoint::crashlytics));
  EXPECT_FALSE(rule->targets(SandboxEndpoint::sessions));
  EXPECT_EQ(parseFaultRule(faultRuleJson(*rule)), rule);
}

TEST(FaultBook, FirstMatchingRuleIsUsedUpByItsCount) {
  FaultBook book;
  book.add(*parseFaultRule(R"({"endpoint":"sessions","personId":"p-422","status":422,"times":1})"));
  book.add(*parseFaultRule(R"({"endpoint":"sessions","status":500,"times":2})"));

  EXPECT_EQ(book.take(SandboxEndpoint::transactions, "p-422"), std::nullopt);
  EXPECT_EQ(book.take(SandboxEndpoint::sessions, "p-422")->status, 422);
  EXPECT_EQ(book.take(SandboxEndpoint::sessions, "p-422")->status, 500);
  EXPECT_EQ(book.take(SandboxEndpoint::sessions, std::nullopt)->status, 500);
  EXPECT_EQ(book.take(SandboxEndpoint::sessions, "p-422"), std::nullopt);
  EXPECT_TRUE(book.rules().empty());
}

}  // namespace
}  // namespace kiv::sandbox
