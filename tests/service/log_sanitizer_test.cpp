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
class ScalarBoundaryTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ScalarBoundaryTest, PlainTextIsCutBeforeTheCharacterThatCrossesTheBudget) {
  const std::string& character = GetParam();
  const std::string text = repeat(character, 70000 / character.size());
  const std::string cut = truncateBodyText(text);
  const std::size_t kept = 64961 / character.size() * character.size();
  EXPECT_EQ(cut,
            text.substr(0, kept) + kEllipsis + "[truncated,originalByteLength=" + std::to_string(text.size()) + "]");
  EXPECT_TRUE(unicode::isValidUtf8(cut));
}

INSTANTIATE_TEST_SUITE_P(Widths, ScalarBoundaryTest, ::testing::Values("\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"));

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

struct BodyCase {
  std::string name;
  std::string body;
  std::string expected;
};

void PrintTo(const BodyCase& body, std::ostream* os) { *os << body.name; }

class JsonBodyTest : public ::testing::TestWithParam<BodyCase> {};

TEST_P(JsonBodyTest, BodyComesBackSortedWithTheLastOfRepeatedKeysAndNoRemovedMembers) {
  EXPECT_EQ(truncateBodyText(GetParam().body), GetParam().expected);
}

// An object of `count` members "m<i>":i, first to last or last to first.
std::string members(int count, bool reversed) {
  std::string body = "{";
  for (int n = 0; n < count; ++n) {
    const int i = reversed ? count - 1 - n : n;
    body += "\"m" + std::to_string(100 + i) + "\":" + std::to_string(i) + ",";
  }
  body.back() = '}';
  return body;
}

const std::string kLongText = repeat("x", 1024);
INSTANTIATE_TEST_SUITE_P(
    Bodies, JsonBodyTest,
    ::testing::Values(
        BodyCase{"LastRepeatedKeyWins", R"({"b":1,"a":2,"a":{"c":[3]}})", R"({"a":{"c":[3]},"b":1})"},
        BodyCase{"KeysInByteOrder", "{\"\xC3\xA9\":1,\"z\":2,\"A\":3}", "{\"A\":3,\"z\":2,\"\xC3\xA9\":1}"},
        BodyCase{"ManyMembers", members(40, true), members(40, false)},
        BodyCase{"LongTextRemovesEarlierMember", R"({"data":1,"data":")" + kLongText + R"("})", "{}"},
        BodyCase{"LaterMemberReplacesLongText", R"({"data":")" + kLongText + R"(","data":1})", R"({"data":1})"},
        BodyCase{"DroppedKeyRemovesEarlierMember", R"({"imgData":1,"k":0,"imgData":{"x":[{"y":1}]}})", R"({"k":0})"},
        BodyCase{"NestedDroppedContainers", R"([{"a":{"img_data":[{"b":"c"}]},"z":[{"imgPreview":{}}]}])",
                 R"([{"a":{},"z":[{}]}])"},
        BodyCase{"InvalidUtf8RepairedThenParsed", "{\"k\xFF\":\"v\xC3\"}", "{\"k\xEF\xBF\xBD\":\"v\xEF\xBF\xBD\"}"},
        BodyCase{"TextOpeningWithWhiteSpaceIsABody", R"({"a":" {\"b\": [1]} ","c":" x"})",
                 R"({"a":"{\"b\":[1]}","c":" x"})"},
        // A dropped value still counts towards the depth bound.
        BodyCase{"DroppedValueAtTheDepthBound", R"({"imgData":)" + repeat("[", 511) + repeat("]", 511) + "}", "{}"},
        BodyCase{"DroppedValueBeyondTheDepthBound", R"({"imgData":)" + repeat("[", 512) + repeat("]", 512) + "}",
                 R"({"imgData":)" + repeat("[", 512) + repeat("]", 512) + "}"}),
    [](const auto& test) { return test.param.name; });

TEST(LogSanitizer, InvalidUtf8IsRepairedWithinTheBound) {
  EXPECT_EQ(truncateBodyText("ok\xFF"), "ok\xEF\xBF\xBD");
  const std::string cut = truncateBodyText(repeat("\xFF", 30000));
  EXPECT_TRUE(unicode::isValidUtf8(cut));
  EXPECT_LE(cut.size(), maxLoggedBytes);
  EXPECT_NE(cut.find("originalByteLength=90000]"), std::string::npos);
}

struct EntryCase {
  std::string key;
  std::string value;
  bool kept;
};

void PrintTo(const EntryCase& entry, std::ostream* os) { *os << entry.key << " of " << entry.value.size() << " bytes"; }

class DictionaryEntryTest : public ::testing::TestWithParam<EntryCase> {};

// Both dictionary variants apply the same entry rules.
TEST_P(DictionaryEntryTest, EntryIsKeptOrRemovedByKeyAndCharacterCount) {
  const auto& [key, value, kept] = GetParam();
  Json any = Json::object();
  any[key] = value;
  any["other"] = 1;
  Json expected = {{"other", 1}};
  if (kept) expected = {{key, value}, {"other", 1}};
  EXPECT_EQ(sanitizeDictionary(any), expected);

  const auto texts = sanitizeDictionary(std::map<std::string, std::string>{{key, value}});
  EXPECT_EQ(texts.contains(key), kept);
}

// "e" + COMBINING ACUTE ACCENT is one character of two scalars; a flag is
// one character of two regional indicators.
const std::string kCombined = "e\xCC\x81";
const std::string kFlag = "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7";
INSTANTIATE_TEST_SUITE_P(
    Entries, DictionaryEntryTest,
    ::testing::Values(EntryCase{"image", repeat("x", 1023), true}, EntryCase{"image", repeat("x", 1024), false},
                      EntryCase{"data", repeat(kCombined, 1023), true},
                      EntryCase{"data", repeat(kCombined, 1024), false}, EntryCase{"image", repeat(kFlag, 1023), true},
                      EntryCase{"image", repeat(kFlag, 1024), false}, EntryCase{"Data", repeat("x", 2000), true},
                      EntryCase{"imgData", "x", false}, EntryCase{"imgPreview", "", false},
                      EntryCase{"img_data", "x", false}, EntryCase{"img_preview", "x", false}));

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
