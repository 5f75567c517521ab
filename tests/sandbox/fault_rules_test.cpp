#include "sandbox/fault_rules.hpp"

#include <gtest/gtest.h>

namespace kiv::sandbox {
namespace {

TEST(FaultRule, ARefusedRuleSaysWhy) {
  for (const auto& [rule, reason] : std::vector<std::pair<std::string, std::string>>{
           {"[1]", "JSON object"},
           {R"({"status":500})", "\"endpoint\" is required"},
           {R"({"endpoint":"session","status":500})", "unknown endpoint \"session\""},
           {R"({"endpoint":"sessions","stauts":500})", "unknown key \"stauts\""},
           {R"({"endpoint":"sessions","status":99})", "\"status\" must be between 100"},
           {R"({"endpoint":"sessions","status":"500"})", "whole number"},
           {R"({"endpoint":"sessions","status":500,"times":0})", "\"times\""},
           {R"({"endpoint":"sessions","delayMs":-1})", "\"delayMs\""},
           {R"({"endpoint":"sessions","body":"x"})", "needs a \"status\""},
           {R"({"endpoint":"sessions","drop":true,"status":500})", "\"drop\""},
           {R"({"endpoint":"sessions"})", "changes nothing"}}) {
    const auto parsed = parseFaultRule(rule);
    ASSERT_FALSE(parsed) << rule;
    EXPECT_NE(parsed.error().find(reason), std::string::npos) << parsed.error();
  }
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
