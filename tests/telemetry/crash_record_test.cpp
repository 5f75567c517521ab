#include "telemetry/crash_record.hpp"

#include <gtest/gtest.h>

#include <memory>

#include "platform/crash/fake_crash_primitives.hpp"

namespace kiv {
namespace {

using namespace std::chrono;

std::unique_ptr<CrashCapture> exceptionCapture(std::string_view name, std::string_view reason) {
  auto capture = std::make_unique<CrashCapture>();
  capture->kind = CrashCapture::Kind::exception;
  capture->createdAt = sys_days{2025y / 1 / 31} + 12h + 34min + 56s + 789ms;
  capture->nameLength = name.copy(capture->name.data(), name.size());
  capture->reasonLength = reason.copy(capture->reason.data(), reason.size());
  capture->frames[0] = reinterpret_cast<void*>(0xabc);
  capture->frameCount = 1;
  return capture;
}

std::string slotText(const CrashCapture& capture, std::size_t room = 1 << 20) {
  FakeCrashPrimitives primitives;
  std::string buffer(room, '\0');
  buffer.resize(writeSlotRecord(capture, primitives, buffer));
  return buffer;
}

TEST(CrashRecordTest, DatesAreWrittenInUtcWithTheirOffset) {
  char text[32];
  auto date = [&](TimePoint t) { return std::string(text, formatCrashDate(t, text)); };
  EXPECT_EQ(date(sys_days{2025y / 1 / 31} + 12h + 34min + 56s + 999ms), "2025-01-31 12:34:56 +0000");
  EXPECT_EQ(date(sys_days{2024y / 2 / 29} + 23h + 59min + 59s), "2024-02-29 23:59:59 +0000");
  EXPECT_EQ(date(sys_days{1970y / 1 / 1}), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(formatCrashDate(sys_days{2025y / 1 / 1}, std::span<char>(text, 24)), 0u);  // no room
}

TEST(CrashRecordTest, TheSlotRecordParsesToTheFullRecordShape) {
  FakeCrashPrimitives primitives;
  auto signal = std::make_unique<CrashCapture>();
  signal->signal = 11;
  signal->createdAt = sys_days{2025y / 1 / 31};
  signal->frames[0] = reinterpret_cast<void*>(0x10);
  signal->frames[1] = reinterpret_cast<void*>(0x20);
  signal->frameCount = 2;
  EXPECT_EQ(
      json::parse(slotText(*signal)),
      (Json{{"signal", 11}, {"createdAt", "2025-01-31 00:00:00 +0000"}, {"stackTrace", "fake(+0x10)\nfake(+0x20)"}}));
  EXPECT_EQ(makeCrashRecord(*signal, primitives)["stackTrace"], "fake(symbol+0x10)\nfake(symbol+0x20)");

  auto exception = exceptionCapture("std::runtime_error", "boom");
  const auto slot = json::parse(slotText(*exception));
  ASSERT_TRUE(slot);
  CrashRecord full = makeCrashRecord(*exception, primitives);
  const std::string expected =
      "{\"name\":\"std::runtime_error\",\"reason\":\"boom\",\"createdAt\":\"2025-01-31 12:34:56 +0000\","
      "\"userInfo\":{},\"callStackSymbols\":[\"fake(+0xabc)\"]}";
  EXPECT_EQ(json::dumpCompact(*slot), expected);
  full["callStackSymbols"] = Json::array({"fake(+0xabc)"});
  EXPECT_TRUE(sameCrashRecord(*slot, full));
}

TEST(CrashRecordTest, SlotTextEscapesControlsAndReplacesBadUtf8) {
  const std::string reason = std::string("quote\" back\\ tab\t nl\n bell\x07 ") + "caf\xC3\xA9 " +
                             "bad\xFF lone\xC3 surrogate\xED\xA0\x80 emoji\xF0\x9F\x98\x80";
  const auto parsed = json::parse(slotText(*exceptionCapture("E", reason)));
  ASSERT_TRUE(parsed);
  EXPECT_EQ((*parsed)["reason"],
            "quote\" back\\ tab\t nl\n bell\x07 caf\xC3\xA9 bad\xEF\xBF\xBD lone\xEF\xBF\xBD "
            "surrogate\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD emoji\xF0\x9F\x98\x80");
  // Too little room: nothing rather than a cut record.
  EXPECT_EQ(slotText(*exceptionCapture("E", reason), 40), "");
}

TEST(CrashRecordTest, StackTraceTextFallsBackFromTraceToSymbolsToTheWholeRecord) {
  EXPECT_EQ(crashStackTraceText(Json{{"stackTrace", "a\nb"}, {"callStackSymbols", Json::array({"x"})}}), "a\nb");
  EXPECT_EQ(crashStackTraceText(Json{{"stackTrace", 3}, {"callStackSymbols", Json::array({"x", "y"})}}), "x\ny");
  EXPECT_EQ(crashStackTraceText(Json{{"callStackSymbols", Json::array({"x", 1})}}), R"({"callStackSymbols":["x",1]})");
  EXPECT_EQ(crashStackTraceText(Json{{"callStackSymbols", Json::array()}}), "");
}

}  // namespace
}  // namespace kiv
