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

}  // namespace
}  // namespace kiv
