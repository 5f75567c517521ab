#include <gtest/gtest.h>

#include "kiv/platform/console.hpp"
#include "base/json.hpp"

namespace kiv {
namespace {

TEST(DebugQuoted, EscapesQuotesBackslashesAndControlCharacters) {
  EXPECT_EQ(debugQuoted("plain"), R"("plain")");
  EXPECT_EQ(debugQuoted(""), R"("")");
  EXPECT_EQ(debugQuoted("say \"hi\" it's a\\b"), R"("say \"hi\" it\'s a\\b")");
  EXPECT_EQ(debugQuoted(std::string("a\nb\tc\rd\0e", 9)), R"("a\nb\tc\rd\0e")");
  EXPECT_EQ(debugQuoted("caf\xC3\xA9"), "\"caf\xC3\xA9\"");
}

TEST(Json, DumpReplacesInvalidUtf8InsteadOfThrowing) {
  Json value = Json::object();
  value["b"] = std::string("ok\xFF");
  value["a"] = 1;
  EXPECT_EQ(json::dumpCompact(value), "{\"b\":\"ok\xEF\xBF\xBD\",\"a\":1}");
}

// Each reader takes its own kind, and absent or null as absent; any other
// kind is an error (integers also read as doubles).
TEST(Json, TypedReadersTellIntegersFloatsBooleansAndTextApart) {
  const Json object = *json::parse(R"({"i":2,"f":2.5,"s":"2","b":true,"one":1,"n":null,"o":{},"a":[]})");
  EXPECT_EQ(json::optionalInt(object, "i").value(), 2);
  for (const char* key : {"f", "s", "b"}) EXPECT_FALSE(json::optionalInt(object, key).has_value()) << key;
  for (const char* key : {"missing", "n"}) EXPECT_EQ(json::optionalInt(object, key).value(), std::nullopt) << key;
  EXPECT_EQ(json::optionalBool(object, "b").value(), true);
  EXPECT_FALSE(json::optionalBool(object, "one").has_value());
  EXPECT_EQ(json::optionalDouble(object, "i").value(), 2.0);
  EXPECT_FALSE(json::optionalDouble(object, "b").has_value());
  const auto wrong = json::optionalString(object, "i");
  ASSERT_FALSE(wrong.has_value());
  EXPECT_EQ(wrong.error().key, "i");
  EXPECT_EQ(wrong.error().message, "expected string, found integer");
  EXPECT_FALSE(json::optionalObject(object, "a").has_value());
  EXPECT_TRUE(json::optionalArray(object, "a").value().has_value());
}

}  // namespace
}  // namespace kiv
