#include <gtest/gtest.h>

#include <string>

#include "base/json.hpp"

namespace kiv {
namespace {

std::string nestedArrays(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

std::string nestedObjects(std::size_t depth) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += R"({"a":)";
  text += "1";
  return text + std::string(depth, '}');
}

// Deeper values would overflow the stack when copied or written out later.
TEST(JsonDepth, ParseRefusesValuesNestedBeyondTheBound) {
  EXPECT_TRUE(json::parse(nestedArrays(json::kMaxDepth)));
  EXPECT_TRUE(json::parse(nestedObjects(json::kMaxDepth)));
  EXPECT_FALSE(json::parse(nestedArrays(json::kMaxDepth + 1)));
  EXPECT_FALSE(json::parse(nestedObjects(json::kMaxDepth + 1)));
  EXPECT_FALSE(json::parse(nestedArrays(1'000'000)));
  // Brackets inside strings are text, not depth.
  EXPECT_TRUE(json::parse("\"" + nestedArrays(10'000) + "\""));
}

// parse() builds objects itself (in linear time); it must read texts exactly
// as nlohmann's own parser does: members in text order, a repeated key keeping
// its first place and its last value, numbers keeping their kind.
TEST(JsonParse, ReadsTextsAsNlohmannDoes) {
  for (const std::string text :
       {R"({"b":1,"a":[true,null,{"z":"x","y":-2}],"b":2.5,"c":{},"d":[],"e":18446744073709551615})",
        R"([{"k":1,"k":{"k":[1]}},"\u00e9",1e0,-0.0])", R"("just text")", "42"}) {
    const auto parsed = json::parse(text);
    ASSERT_TRUE(parsed) << text;
    const Json expected = Json::parse(text);
    EXPECT_EQ(*parsed, expected) << text;
    EXPECT_EQ(json::dumpCompact(*parsed), json::dumpCompact(expected)) << text;
  }
  for (const std::string text : {"", "{", R"({"a":1,})", "[1] 2", "\"\xff\"", "{\"a\"}"}) {
    EXPECT_FALSE(json::parse(text)) << text;
  }
}

}  // namespace
}  // namespace kiv
