#include <gtest/gtest.h>

#include <string>

#include "platform/json/json.hpp"

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

}  // namespace
}  // namespace kiv
