#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "service/string_utils.hpp"

namespace kiv {
namespace {

struct ExtractCase {
  std::string name;
  std::optional<std::string> raw;
  std::string expected;
};

// {"message":"x","pad":"ppp..."} exactly `size` bytes long.
std::string messageBodyOfSize(std::size_t size) {
  const std::string head = R"({"message":"x","pad":")";
  return head + std::string(size - head.size() - 2, 'p') + "\"}";
}

TEST(ExtractErrorMessageTest, FindsTheMessageOrKeepsTheText) {
  for (const auto& c : std::vector<ExtractCase>{
           ExtractCase{"Absent", std::nullopt, ""}, ExtractCase{"Empty", "", ""},
           ExtractCase{"PlainTextUnchanged", "  Bad Gateway \n", "  Bad Gateway \n"},
           ExtractCase{"EmptyMessageCounts", R"({"message":"","messages":["y"]})", ""},
           ExtractCase{"MessageBeatsCapital", R"({"Message":"b","message":"a"})", "a"},
           ExtractCase{"NonTextMessageSkipped", R"({"message":5,"Message":"m"})", "m"},
           ExtractCase{"FirstOfMessages", R"({"messages":["a","b"]})", "a"},
           ExtractCase{"EmptyFirstOfMessagesSkipped", R"({"messages":["","b"],"Messages":["c"],"z":{"message":"d"}})",
                       "d"},
           ExtractCase{"MixedListIsNoTextList", R"({"messages":[1,"a"],"Messages":["b"]})", "b"},
           ExtractCase{"MessagesBeatErrorMessage", R"({"error":{"message":"e"},"messages":["m"]})", "m"},
           ExtractCase{"ErrorMessage", R"({"error":{"message":"e"}})", "e"},
           ExtractCase{"ErrorMessages", R"({"error":{"Messages":["e"]}})", "e"},
           ExtractCase{"NestedInIterationOrder", R"({"a":{"b":{"message":"deep"}},"c":{"message":"later"}})", "deep"},
           ExtractCase{"MessageQuotesStripped", R"({"message":"  \"quoted\"  "})", "quoted"},
           ExtractCase{"LoneQuoteKept", R"({"message":"\""})", "\""},
           ExtractCase{"ObjectWithoutMessageUnchanged", R"({"code":1})", R"({"code":1})"},
           ExtractCase{"BareJsonStringUnchanged", R"("just text")", R"("just text")"},
           ExtractCase{"ListSingleMessageBeforeMessages", R"([{"messages":["first"]},{"message":"second"}])", "second"},
           ExtractCase{"ListErrorMessageBeforeMessages", R"([{"messages":["m"]},{"error":{"message":"e"}}])", "e"},
           ExtractCase{"ListMessagesBeforeNested", R"([[{"message":"nested"}],{"error":{"messages":["m"]}}])", "m"},
           ExtractCase{"ListNested", R"([1,[{"message":"nested"}]])", "nested"},
           ExtractCase{"QuotedJsonLiteral", R"(  "{\"error\":{\"messages\":[\"bad\",\"worse\"]}}" )", "bad"},
           ExtractCase{"QuotedJsonLiteralEscapedSlash", R"("{\"message\":\"a\/b\"}")", "a/b"},
           ExtractCase{"QuotedTextWithoutJsonUnchanged", R"( "plain" )", R"( "plain" )"},
           ExtractCase{"QuoteWithCombiningMarkIsNoQuote", "\"\xCC\x81{\\\"message\\\":\\\"x\\\"}\"",
                       "\"\xCC\x81{\\\"message\\\":\\\"x\\\"}\""},
           ExtractCase{"InvalidUtf8Unchanged", "\xFF{\"message\":\"x\"}", "\xFF{\"message\":\"x\"}"},
           // What one answer may cost is bounded: longer bodies are not parsed.
           ExtractCase{"BodyAtTheSizeBoundIsRead", messageBodyOfSize(KivStringUtils::kMaxParsedErrorBody), "x"},
           ExtractCase{"LongerBodyIsText", messageBodyOfSize(KivStringUtils::kMaxParsedErrorBody + 1),
                       messageBodyOfSize(KivStringUtils::kMaxParsedErrorBody + 1)},
           ExtractCase{"TooDeepIsNoJson", std::string(600, '[') + R"({"message":"x"})" + std::string(600, ']'),
                       std::string(600, '[') + R"({"message":"x"})" + std::string(600, ']')}}) {
    EXPECT_EQ(KivStringUtils::extractErrorMessage(c.raw), c.expected) << c.name;
  }
}

}  // namespace
}  // namespace kiv
