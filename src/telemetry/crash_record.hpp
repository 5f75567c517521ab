// Crash records: what the crash handler stores and posts, in two shapes.
//
//   exception: {"name", "reason", "createdAt", "userInfo": {}, "callStackSymbols": [..]}
//   signal:    {"signal", "createdAt", "stackTrace": "line\nline"}
//
// The store adds "id"; records resent at startup get "type" = "stored".
//
// A crash is first captured into fixed storage (CrashCapture) on the crashing
// thread, where nothing may allocate; the same capture becomes the slot text
// there (writeSlotRecord) and the full, symbolised record later on an
// ordinary thread (makeCrashRecord).
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "kiv/platform/clock.hpp"
#include "kiv/platform/crash.hpp"
#include "base/json.hpp"

namespace kiv {

using CrashRecord = Json;

namespace crash_keys {
inline constexpr std::string_view name = "name";
inline constexpr std::string_view reason = "reason";
inline constexpr std::string_view createdAt = "createdAt";
inline constexpr std::string_view userInfo = "userInfo";
inline constexpr std::string_view callStackSymbols = "callStackSymbols";
inline constexpr std::string_view signal = "signal";
inline constexpr std::string_view stackTrace = "stackTrace";
inline constexpr std::string_view id = "id";
inline constexpr std::string_view type = "type";
}  // namespace crash_keys

// The value of "type" on a record resent at startup.
inline constexpr std::string_view kStoredCrashType = "stored";

struct CrashCapture {
  enum class Kind { signal, exception };

  static constexpr std::size_t kMaxFrames = 128;
  static constexpr std::size_t kMaxName = 1024;
  // The telemetry sanitiser keeps 65000 bytes of any text; a longer message
  // would be cut there anyway.
  static constexpr std::size_t kMaxReason = 65000;

  Kind kind = Kind::signal;
  int signal = 0;
  TimePoint createdAt;
  std::array<void*, kMaxFrames> frames{};
  std::size_t frameCount = 0;
  std::array<char, kMaxName> name{};
  std::size_t nameLength = 0;
  std::array<char, kMaxReason> reason{};
  std::size_t reasonLength = 0;

  std::string_view nameText() const { return {name.data(), nameLength}; }
  std::string_view reasonText() const { return {reason.data(), reasonLength}; }
  std::span<void* const> frameSpan() const { return {frames.data(), frameCount}; }
};

// "2025-01-31 12:34:56 +0000": the date as the records carry it, always UTC.
// Allocates nothing; `out` needs 25 characters. Returns the length written.
std::size_t formatCrashDate(TimePoint time, std::span<char> out) noexcept;

// The capture as a record in compact JSON, frames described without symbol
// tables. Allocates nothing; returns the length written, 0 when `out` is too
// small. Text that is not UTF-8 has its bad bytes replaced by U+FFFD.
std::size_t writeSlotRecord(const CrashCapture& capture, CrashPrimitives& primitives, std::span<char> out) noexcept;

// The full record, frames symbolised. Ordinary context.
CrashRecord makeCrashRecord(const CrashCapture& capture, CrashPrimitives& primitives);

// The text posted as a record's stack trace: its "stackTrace" when that is a
// string, else its "callStackSymbols" joined with "\n" when those are all
// strings, else the whole record as text.
std::string crashStackTraceText(const CrashRecord& record);

// Whether `stored` is the same crash as `record`: equal apart from "id" and
// "type".
bool sameCrashRecord(const CrashRecord& stored, const CrashRecord& record);

}  // namespace kiv
