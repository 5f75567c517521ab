#include "telemetry/crash_record.hpp"

#include <chrono>

#include "base/unicode_text.hpp"
#include "platform/crash/fixed_text.hpp"

namespace kiv {
namespace {

void appendJsonString(FixedText& out, std::string_view text) noexcept {
  out.append("\"");
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    const auto u = static_cast<unsigned char>(c);
    if (u >= 0x80) {
      const std::size_t length = unicode::sequenceLengthAt(text, i);
      if (length == 0) {
        out.append("\\ufffd");
        ++i;
      } else {
        out.append(text.substr(i, length));
        i += length;
      }
      continue;
    }
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\r':
        out.append("\\r");
        break;
      case '\t':
        out.append("\\t");
        break;
      default:
        if (u < 0x20) {
          out.append("\\u00").appendPadded(u >> 4, 1);
          out.append(std::string_view(&"0123456789abcdef"[u & 0xF], 1));
        } else {
          out.append(std::string_view(&c, 1));
        }
    }
    ++i;
  }
  out.append("\"");
}

void appendKey(FixedText& out, std::string_view key) noexcept {
  appendJsonString(out, key);
  out.append(":");
}

}  // namespace

std::size_t formatCrashDate(TimePoint time, std::span<char> out) noexcept {
  using namespace std::chrono;
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{floor<seconds>(time - day)};
  FixedText text(out);
  text.appendPadded(static_cast<std::uint64_t>(static_cast<int>(date.year())), 4)
      .append("-")
      .appendPadded(static_cast<unsigned>(date.month()), 2)
      .append("-")
      .appendPadded(static_cast<unsigned>(date.day()), 2)
      .append(" ")
      .appendPadded(static_cast<std::uint64_t>(clock.hours().count()), 2)
      .append(":")
      .appendPadded(static_cast<std::uint64_t>(clock.minutes().count()), 2)
      .append(":")
      .appendPadded(static_cast<std::uint64_t>(clock.seconds().count()), 2)
      .append(" +0000");
  return text.truncated() ? 0 : text.size();
}

std::size_t writeSlotRecord(const CrashCapture& capture, CrashPrimitives& primitives, std::span<char> out) noexcept {
  FixedText text(out);
  char date[32];
  const std::string_view createdAt(date, formatCrashDate(capture.createdAt, date));
  char line[512];
  if (capture.kind == CrashCapture::Kind::signal) {
    text.append("{");
    appendKey(text, crash_keys::signal);
    text.appendDecimal(capture.signal).append(",");
    appendKey(text, crash_keys::createdAt);
    appendJsonString(text, createdAt);
    text.append(",");
    appendKey(text, crash_keys::stackTrace);
    // One JSON string of lines: escape each line as its own piece, then glue
    // the pieces with an escaped line feed.
    text.append("\"");
    for (std::size_t i = 0; i < capture.frameCount; ++i) {
      if (i > 0) text.append("\\n");
      char escaped[1024];
      FixedText piece(escaped);
      appendJsonString(piece, std::string_view(line, primitives.describeFrame(capture.frames[i], line)));
      const std::string_view quoted = piece.view();
      if (quoted.size() >= 2) text.append(quoted.substr(1, quoted.size() - 2));
    }
    text.append("\"}");
  } else {
    text.append("{");
    appendKey(text, crash_keys::name);
    appendJsonString(text, capture.nameText());
    text.append(",");
    appendKey(text, crash_keys::reason);
    appendJsonString(text, capture.reasonText());
    text.append(",");
    appendKey(text, crash_keys::createdAt);
    appendJsonString(text, createdAt);
    text.append(",");
    appendKey(text, crash_keys::userInfo);
    text.append("{},");
    appendKey(text, crash_keys::callStackSymbols);
    text.append("[");
    for (std::size_t i = 0; i < capture.frameCount; ++i) {
      if (i > 0) text.append(",");
      appendJsonString(text, std::string_view(line, primitives.describeFrame(capture.frames[i], line)));
    }
    text.append("]}");
  }
  return text.truncated() ? 0 : text.size();
}

CrashRecord makeCrashRecord(const CrashCapture& capture, CrashPrimitives& primitives) {
  char date[32];
  const std::string createdAt(date, formatCrashDate(capture.createdAt, date));
  const std::vector<std::string> symbols = primitives.symbolizeFrames(capture.frameSpan());
  CrashRecord record = Json::object();
  if (capture.kind == CrashCapture::Kind::signal) {
    std::string trace;
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      if (i > 0) trace += '\n';
      trace += symbols[i];
    }
    record[crash_keys::signal] = static_cast<std::int32_t>(capture.signal);
    record[crash_keys::createdAt] = createdAt;
    record[crash_keys::stackTrace] = std::move(trace);
  } else {
    record[crash_keys::name] = std::string(capture.nameText());
    record[crash_keys::reason] = std::string(capture.reasonText());
    record[crash_keys::createdAt] = createdAt;
    record[crash_keys::userInfo] = Json::object();
    record[crash_keys::callStackSymbols] = symbols;
  }
  return record;
}

std::string crashStackTraceText(const CrashRecord& record) {
  if (record.is_object()) {
    if (auto it = record.find(crash_keys::stackTrace); it != record.end() && it->is_string()) {
      return it->get<std::string>();
    }
    if (auto it = record.find(crash_keys::callStackSymbols); it != record.end() && it->is_array()) {
      std::string joined;
      bool allText = true;
      for (std::size_t i = 0; i < it->size() && allText; ++i) {
        const Json& line = (*it)[i];
        allText = line.is_string();
        if (!allText) break;
        if (i > 0) joined += '\n';
        joined += line.get<std::string>();
      }
      if (allText) return joined;
    }
  }
  return json::dumpCompact(record);
}

bool sameCrashRecord(const CrashRecord& stored, const CrashRecord& record) {
  if (!stored.is_object() || !record.is_object()) return false;
  auto strip = [](Json value) {
    value.erase(crash_keys::id);
    value.erase(crash_keys::type);
    return value;
  };
  return strip(stored) == strip(record);
}

}  // namespace kiv
