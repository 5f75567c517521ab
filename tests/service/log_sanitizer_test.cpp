#include "service/log_sanitizer.hpp"

#include <gtest/gtest.h>

#include <string>

#include "base/unicode_text.hpp"

namespace kiv {
namespace {

std::string repeat(std::string_view unit, std::size_t times) {
  std::string out;
  out.reserve(unit.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += unit;
  return out;
}

const std::string kEllipsis = "\xE2\x80\xA6";

TEST(LogSanitizer, PlainTextAtTheBoundIsKeptAndOneByteMoreIsCut) {
  const std::string atBound = repeat("a", 65000);
  EXPECT_EQ(truncateBodyText(atBound), atBound);

  const std::string suffix = kEllipsis + "[truncated,originalByteLength=65001]";
  const std::string cut = truncateBodyText(repeat("a", 65001));
  EXPECT_EQ(cut, repeat("a", 65000 - suffix.size()) + suffix);
}

// A budget of 64961 bytes (65000 minus the 39-byte suffix) ends inside a
// character of each of these widths.
TEST(LogSanitizer, PlainTextIsCutBeforeTheCharacterThatCrossesTheBudget) {
  for (const std::string character : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    const std::string text = repeat(character, 70000 / character.size());
    const std::string cut = truncateBodyText(text);
    const std::size_t kept = 64961 / character.size() * character.size();
    EXPECT_EQ(cut,
              text.substr(0, kept) + kEllipsis + "[truncated,originalByteLength=" + std::to_string(text.size()) + "]");
    EXPECT_TRUE(unicode::isValidUtf8(cut));
  }
}

TEST(LogSanitizer, JsonBodyLosesNestedImagesBeforeItsSizeIsChecked) {
  const std::string body = "{\"a\":{\"imgData\":\"" + repeat("A", 40000) + "\"},\"list\":[{\"img_preview\":\"" +
                           repeat("B", 40000) + "\",\"n\":1}],\"ok\":true}";
  EXPECT_EQ(truncateBodyText(body), R"({"a":{},"list":[{"n":1}],"ok":true})");
}

TEST(LogSanitizer, OversizedJsonBecomesTheMarkerOfItsCompactLength) {
  // The nested text is cut to 65000 bytes first, so the marker states the
  // length after that cut (11 bytes of JSON around it), not the input's.
  EXPECT_EQ(truncateBodyText("{\"body\": \"" + repeat("x", 70000) + "\"}"),
            R"({"truncated":true,"originalByteLength":65011})");
}

TEST(LogSanitizer, JsonTextIsTrimmedOfUnicodeWhiteSpaceAndCompacted) {
  EXPECT_EQ(truncateBodyText("\xC2\xA0\n { \"a\" : [1, 2.5, \"{ \\\"b\\\" : null }\"] }\r\n\xE2\x80\xA8"),
            R"({"a":[1,2.5,"{\"b\":null}"]})");
  EXPECT_EQ(truncateBodyText("[not json"), "[not json");
  EXPECT_EQ(truncateBodyText(" plain "), " plain ");
}

TEST(LogSanitizer, DeeplyNestedJsonIsHandledAsPlainText) {
  const std::string shallow = repeat("[ ", 500) + repeat("] ", 500);
  EXPECT_EQ(truncateBodyText(shallow), repeat("[", 500) + repeat("]", 500));
  const std::string deep = repeat("[ ", 600) + repeat("] ", 600);
  EXPECT_EQ(truncateBodyText(deep), deep);
  const std::string huge = repeat("[", 100000) + repeat("]", 100000);
  EXPECT_EQ(truncateBodyText(huge).size(), 65000u);
}

// Bodies come back sorted, with the last of repeated keys and no removed members.
TEST(LogSanitizer, JsonBodyIsSortedAndKeepsTheLastOfRepeatedKeys) {
  const std::string longText = repeat("x", 1024);
  const std::vector<std::pair<std::string, std::string>> bodies{
      {R"({"b":1,"a":2,"a":{"c":[3]}})", R"({"a":{"c":[3]},"b":1})"},
      {"{\"\xC3\xA9\":1,\"z\":2,\"A\":3}", "{\"A\":3,\"z\":2,\"\xC3\xA9\":1}"},  // keys in byte order
      {R"({"data":1,"data":")" + longText + R"("})", "{}"},  // a long text removes an earlier member
      {R"({"data":")" + longText + R"(","data":1})", R"({"data":1})"},
      {R"({"imgData":1,"k":0,"imgData":{"x":[{"y":1}]}})", R"({"k":0})"},
      {R"([{"a":{"img_data":[{"b":"c"}]},"z":[{"imgPreview":{}}]}])", R"([{"a":{},"z":[{}]}])"},
      {"{\"k\xFF\":\"v\xC3\"}", "{\"k\xEF\xBF\xBD\":\"v\xEF\xBF\xBD\"}"},         // repaired, then parsed
      {R"({"a":" {\"b\": [1]} ","c":" x"})", R"({"a":"{\"b\":[1]}","c":" x"})"},  // text opening with white space
      // A dropped value still counts towards the depth bound.
      {R"({"imgData":)" + repeat("[", 511) + repeat("]", 511) + "}", "{}"},
      {R"({"imgData":)" + repeat("[", 512) + repeat("]", 512) + "}",
       R"({"imgData":)" + repeat("[", 512) + repeat("]", 512) + "}"}};
  for (const auto& [body, expected] : bodies) EXPECT_EQ(truncateBodyText(body), expected) << body.substr(0, 80);
}

TEST(LogSanitizer, InvalidUtf8IsRepairedWithinTheBound) {
  EXPECT_EQ(truncateBodyText("ok\xFF"), "ok\xEF\xBF\xBD");
  const std::string cut = truncateBodyText(repeat("\xFF", 30000));
  EXPECT_TRUE(unicode::isValidUtf8(cut));
  EXPECT_LE(cut.size(), maxLoggedBytes);
  EXPECT_NE(cut.find("originalByteLength=90000]"), std::string::npos);
}

// Both dictionary variants apply the same entry rules. "e" + COMBINING ACUTE
// ACCENT is one character of two scalars; a flag is one character of two
// regional indicators.
TEST(LogSanitizer, EntryIsKeptOrRemovedByKeyAndCharacterCount) {
  const std::string combined = "e\xCC\x81", flag = "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7";
  const struct {
    std::string key, value;
    bool kept;
  } entries[] = {{"image", repeat("x", 1023), true},
                 {"image", repeat("x", 1024), false},
                 {"data", repeat(combined, 1023), true},
                 {"data", repeat(combined, 1024), false},
                 {"image", repeat(flag, 1023), true},
                 {"image", repeat(flag, 1024), false},
                 {"Data", repeat("x", 2000), true},
                 {"imgData", "x", false},
                 {"imgPreview", "", false},
                 {"img_data", "x", false},
                 {"img_preview", "x", false}};
  for (const auto& [key, value, kept] : entries) {
    SCOPED_TRACE(key + " of " + std::to_string(value.size()) + " bytes");
    Json any = {{key, value}, {"other", 1}};
    EXPECT_EQ(sanitizeDictionary(any), kept ? any : (Json{{"other", 1}}));
    EXPECT_EQ(sanitizeDictionary(std::map<std::string, std::string>{{key, value}}).contains(key), kept);
  }
}

TEST(LogSanitizer, AnyValueKeepsItsShapeAndNonTextLeaves) {
  const Json input = {{"img_preview", 3},
                      {"image", 5},
                      {"list", Json::array({1, nullptr, false, {{"imgData", "x"}, {"k", "v"}}, repeat("z", 65001)})}};
  const std::string cut = repeat("z", 64961) + kEllipsis + "[truncated,originalByteLength=65001]";
  EXPECT_EQ(sanitizeForLog(input), (Json{{"image", 5}, {"list", Json::array({1, nullptr, false, {{"k", "v"}}, cut})}}));
}

TEST(LogSanitizer, TextValuesHoldingJsonAreSanitisedInside) {
  const auto result = sanitizeDictionary(std::map<std::string, std::string>{{"body", R"({ "imgData": "x", "a": 1 })"}});
  EXPECT_EQ(result.at("body"), R"({"a":1})");
}

}  // namespace
}  // namespace kiv
