#include "service/log_sanitizer.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "service/unicode_text.hpp"
#include "service/unordered_json.hpp"

namespace kiv {
namespace {

// Bodies nested deeper are handled as plain text: the serialiser recurses
// once per level, so an unbounded depth would overflow the stack, and no
// real body comes near this.
constexpr std::size_t kMaxBodyDepth = 512;
constexpr std::size_t kUnboundedDepth = SIZE_MAX;

bool contains(const auto& keys, std::string_view key) { return std::ranges::find(keys, key) != keys.end(); }

// Whether the entry under `key` goes; `text` is its value when that is a text.
bool isRemoved(std::string_view key, const std::string* text) {
  if (contains(droppedKeys, key)) return true;
  if (text == nullptr || !contains(largeValueKeys, key)) return false;
  // Fewer bytes than the limit cannot hold that many characters.
  return text->size() >= largeValueCharacterCount &&
         unicode::characterCountUpTo(*text, largeValueCharacterCount) >= largeValueCharacterCount;
}

std::optional<std::string> sanitizedText(std::string_view text);

// Sanitises in place, without recursion: values arrive from callers and
// from parsed bodies, and neither bounds their depth. Gives false, with the
// value partly sanitised, when arrays and objects nest deeper than
// `maxDepth` (the root is at depth 1).
template <typename J>
bool sanitizeValue(J& root, std::size_t maxDepth) {
  std::vector<std::pair<J*, std::size_t>> pending{{&root, 1}};
  while (!pending.empty()) {
    auto [value, depth] = pending.back();
    pending.pop_back();
    if (value->is_string()) {
      auto& text = value->template get_ref<typename J::string_t&>();
      if (auto sanitized = sanitizedText(text)) text = std::move(*sanitized);
      continue;
    }
    if (!value->is_structured()) continue;
    if (depth > maxDepth) return false;
    if (value->is_object()) {
      auto& object = value->template get_ref<typename J::object_t&>();
      for (auto it = object.begin(); it != object.end();) {
        const auto* text = it->second.template get_ptr<const typename J::string_t*>();
        it = isRemoved(it->first, text) ? object.erase(it) : std::next(it);
      }
    }
    for (J& child : *value) pending.emplace_back(&child, depth + 1);
  }
  return true;
}

// The compact, sanitised form of a text that is a JSON object or array, or
// nullopt when it is not one. Parsed without order: a body's key order is
// not kept anyway, and the ordered parse is quadratic in an object's size.
std::optional<std::string> compactJsonBody(std::string_view text) {
  const std::string_view trimmed = unicode::trimWhiteSpaceAndNewlines(text);
  if (trimmed.empty() || (trimmed.front() != '{' && trimmed.front() != '[')) return std::nullopt;
  auto body = unordered_json::parse(trimmed);
  if (!body || !body->is_structured() || !sanitizeValue(*body, kMaxBodyDepth)) return std::nullopt;
  return unordered_json::dumpCompact(*body);
}

std::string withLength(std::string_view prefix, std::size_t length, std::string_view end) {
  std::string out(prefix);
  out += std::to_string(length);
  out += end;
  return out;
}

// The sanitised text, or nullopt when it is `text` itself (most telemetry
// values: short, valid, not JSON), so callers copy nothing.
std::optional<std::string> sanitizedText(std::string_view input) {
  std::optional<std::string> repaired = unicode::repairedUtf8(input);
  const std::string_view text = repaired ? std::string_view(*repaired) : input;

  if (auto compact = compactJsonBody(text)) {
    if (compact->size() > maxLoggedBytes) return truncatedJsonMarker(compact->size());
    return compact;
  }
  if (text.size() > maxLoggedBytes) {
    const std::string suffix = truncatedPlainSuffix(text.size());
    const std::size_t budget = maxLoggedBytes > suffix.size() ? maxLoggedBytes - suffix.size() : 0;
    std::string cut(utf8Prefix(text, budget));
    cut += suffix;
    return cut;
  }
  return repaired;
}

}  // namespace

std::string truncatedJsonMarker(std::size_t originalByteLength) {
  return withLength(truncatedJsonMarkerPrefix, originalByteLength, truncatedJsonMarkerEnd);
}

std::string truncatedPlainSuffix(std::size_t originalByteLength) {
  return withLength(truncatedPlainSuffixPrefix, originalByteLength, truncatedPlainSuffixEnd);
}

Json sanitizeForLog(Json value) {
  sanitizeValue(value, kUnboundedDepth);
  return value;
}

Json sanitizeDictionary(Json dictionary) { return sanitizeForLog(std::move(dictionary)); }

std::map<std::string, std::string> sanitizeDictionary(std::map<std::string, std::string> dictionary) {
  for (auto it = dictionary.begin(); it != dictionary.end();) {
    if (isRemoved(it->first, &it->second)) {
      it = dictionary.erase(it);
      continue;
    }
    if (auto sanitized = sanitizedText(it->second)) it->second = std::move(*sanitized);
    ++it;
  }
  return dictionary;
}

std::string truncateBodyText(std::string_view text) {
  auto sanitized = sanitizedText(text);
  return sanitized ? std::move(*sanitized) : std::string(text);
}

std::string_view utf8Prefix(std::string_view text, std::size_t budget) {
  if (text.size() <= budget) return text;
  const auto isContinuation = [&](std::size_t i) { return (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80; };
  std::size_t cut = budget;
  if (isContinuation(cut)) {
    // The budget ends inside a sequence: step back to its lead byte (at most
    // three back) and cut before it if that sequence is valid. Continuation
    // bytes without a lead are units of their own and cut anywhere.
    std::size_t start = cut;
    while (start > 0 && cut - start < 3 && isContinuation(start)) --start;
    if (const std::size_t length = unicode::sequenceLengthAt(text, start); length > 0 && start + length > cut) {
      cut = start;
    }
  }
  return text.substr(0, cut);
}

}  // namespace kiv
