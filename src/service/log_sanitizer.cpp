#include "service/log_sanitizer.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "base/unicode_text.hpp"

namespace kiv {
namespace {

// Bodies nested deeper are handled as plain text: the serialiser recurses
// once per level, so an unbounded depth would overflow the stack, and no
// real body comes near this.
constexpr std::size_t kMaxBodyDepth = json::kMaxDepth;

bool contains(const auto& keys, std::string_view key) { return std::ranges::find(keys, key) != keys.end(); }

// Whether a text under largeValueKeys is long enough to be removed.
bool isLongText(std::string_view text) {
  // Fewer bytes than the limit cannot hold that many characters.
  return text.size() >= largeValueCharacterCount &&
         unicode::characterCountUpTo(text, largeValueCharacterCount) >= largeValueCharacterCount;
}

// Whether the entry under `key` goes; `text` is its value when that is a text.
bool isRemoved(std::string_view key, const std::string* text) {
  if (contains(droppedKeys, key)) return true;
  return text != nullptr && contains(largeValueKeys, key) && isLongText(*text);
}

// Whether a text is known to be well-formed UTF-8: texts the JSON parser
// produced are, texts from callers may not be.
enum class Utf8 { known, unchecked };

std::optional<std::string> sanitizedText(std::string_view text, Utf8 utf8);

// Parses a body and sanitises it in the same pass, building only what
// survives: members under droppedKeys are parsed (the body must still be
// valid) but never built, and texts are sanitised as they arrive. Objects
// come out with their keys sorted and a repeated key taking its last value,
// the order in which a body's members have always been written.
//
// Members of an open object collect in a scratch list per depth, reused
// from one object to the next, and move into the object once it closes
// sorted; arrays are built in place. The parser does not recurse and
// nothing nests deeper than kMaxBodyDepth, so writing the value out cannot
// exhaust the stack.
class SanitizingBuilder final {
 public:
  using number_integer_t = Json::number_integer_t;
  using number_unsigned_t = Json::number_unsigned_t;
  using number_float_t = Json::number_float_t;
  using string_t = Json::string_t;
  using binary_t = Json::binary_t;

  bool null() { return place(Json(nullptr)); }
  bool boolean(bool value) { return place(Json(value)); }
  bool number_integer(number_integer_t value) { return place(Json(value)); }
  bool number_unsigned(number_unsigned_t value) { return place(Json(value)); }
  bool number_float(number_float_t value, const string_t&) { return place(Json(value)); }
  bool binary(binary_t&) { return false; }  // JSON text has none

  bool string(string_t& value) {
    if (skipped_ > 0) return true;
    const Next next = std::exchange(next_, Next::kept);
    // A removed member stays behind as its marker.
    if (next == Next::dropped || (next == Next::keptIfShort && isLongText(value))) return true;
    if (auto sanitized = sanitizedText(value, Utf8::known)) value = std::move(*sanitized);
    *slot() = Json(std::move(value));
    return true;
  }

  bool start_object(std::size_t) { return open(Kind::object); }
  bool start_array(std::size_t) { return open(Kind::array); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }

  bool key(string_t& name) {
    if (skipped_ > 0) return true;
    next_ = contains(droppedKeys, name)      ? Next::dropped
            : contains(largeValueKeys, name) ? Next::keptIfShort
                                             : Next::kept;
    // Every member starts as a removed one; the marker stays when the value
    // is removed, so that it still overrides an earlier member of that key.
    members_[open_.size() - 1].emplace_back(std::move(name), Json(Json::value_t::discarded));
    return true;
  }

  template <typename Exception>
  bool parse_error(std::size_t, const std::string&, const Exception&) {
    return false;
  }

  Json take() { return std::move(root_); }

 private:
  enum class Kind { object, array };
  // What becomes of the value that comes next.
  enum class Next { kept, dropped, keptIfShort };
  using Member = std::pair<std::string, Json>;

  Json* slot() {
    if (open_.empty()) return &root_;
    if (open_.back().kind == Kind::array) return &open_.back().value->get_ref<Json::array_t&>().emplace_back();
    return &members_[open_.size() - 1].back().second;
  }

  bool place(Json&& value) {
    if (skipped_ == 0 && std::exchange(next_, Next::kept) != Next::dropped) *slot() = std::move(value);
    return true;
  }

  bool open(Kind kind) {
    if (open_.size() + skipped_ >= kMaxBodyDepth) return false;
    if (skipped_ > 0 || std::exchange(next_, Next::kept) == Next::dropped) {
      ++skipped_;
      return true;
    }
    Json* at = slot();
    *at = kind == Kind::object ? Json::object() : Json::array();
    open_.push_back({kind, at});
    if (members_.size() < open_.size()) members_.resize(open_.size());
    return true;
  }

  bool close() {
    if (skipped_ > 0) {
      --skipped_;
      return true;
    }
    if (open_.back().kind == Kind::object) closeObject(open_.back().value->get_ref<Json::object_t&>());
    open_.pop_back();
    return true;
  }

  // Most objects have a handful of members: an insertion sort orders them
  // without the buffer stable_sort allocates on every call.
  static void sortStably(std::vector<Member>& members) {
    const auto byKey = [](const Member& a, const Member& b) { return a.first < b.first; };
    if (members.size() > 32) {
      std::stable_sort(members.begin(), members.end(), byKey);
      return;
    }
    for (auto next = members.begin(); next != members.end(); ++next) {
      if (next == members.begin() || !byKey(*next, *std::prev(next))) continue;
      Member moving = std::move(*next);
      auto hole = next;
      do {
        *hole = std::move(*std::prev(hole));
        --hole;
      } while (hole != members.begin() && byKey(moving, *std::prev(hole)));
      *hole = std::move(moving);
    }
  }

  // Sorted by key; of a repeated key only the last member counts, and a
  // removed one leaves no member at all.
  void closeObject(Json::object_t& object) {
    std::vector<Member>& members = members_[open_.size() - 1];
    sortStably(members);
    object.reserve(members.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (i + 1 < members.size() && members[i + 1].first == members[i].first) continue;
      if (members[i].second.is_discarded()) continue;
      object.emplace_back(std::move(members[i].first), std::move(members[i].second));
    }
    members.clear();
  }

  struct Open {
    Kind kind;
    Json* value;
  };

  Json root_;
  std::vector<Open> open_;
  std::vector<std::vector<Member>> members_;  // by depth of the open object
  std::size_t skipped_ = 0;                   // depth inside a dropped value
  Next next_ = Next::kept;
};

// The compact, sanitised form of a text that is a JSON object or array, or
// nullopt when it is not one.
std::optional<std::string> compactJsonBody(std::string_view text) {
  const std::string_view trimmed = unicode::trimWhiteSpaceAndNewlines(text);
  if (trimmed.empty() || (trimmed.front() != '{' && trimmed.front() != '[')) return std::nullopt;
  SanitizingBuilder builder;
  if (!Json::sax_parse(trimmed.begin(), trimmed.end(), &builder)) return std::nullopt;
  return json::dumpCompact(builder.take());
}

// Sanitises a caller's value in place, without recursion: callers do not
// bound its depth.
void sanitizeValue(Json& root) {
  std::vector<Json*> pending{&root};
  while (!pending.empty()) {
    Json* value = pending.back();
    pending.pop_back();
    if (value->is_string()) {
      auto& text = value->get_ref<std::string&>();
      if (auto sanitized = sanitizedText(text, Utf8::unchecked)) text = std::move(*sanitized);
      continue;
    }
    if (!value->is_structured()) continue;
    if (value->is_object()) {
      auto& object = value->get_ref<Json::object_t&>();
      for (auto it = object.begin(); it != object.end();) {
        it = isRemoved(it->first, it->second.get_ptr<const std::string*>()) ? object.erase(it) : std::next(it);
      }
    }
    for (Json& child : *value) pending.push_back(&child);
  }
}

std::string withLength(std::string_view prefix, std::size_t length, std::string_view end) {
  std::string out(prefix);
  out += std::to_string(length);
  out += end;
  return out;
}

// Whether `text` may be a JSON object or array once trimmed: it opens with
// a bracket, or with a byte that may start white space (any non-ASCII byte
// may start Unicode white space).
bool mayBeJsonBody(std::string_view text) {
  if (text.empty()) return false;
  const auto first = static_cast<unsigned char>(text.front());
  return first == '{' || first == '[' || first == ' ' || (first >= '\t' && first <= '\r') || first >= 0x80;
}

std::string boundedJson(std::string compact) {
  if (compact.size() > maxLoggedBytes) return truncatedJsonMarker(compact.size());
  return compact;
}

// The sanitised text, or nullopt when it is `text` itself (most telemetry
// values: short, valid, not JSON), so callers copy nothing.
std::optional<std::string> sanitizedText(std::string_view input, Utf8 utf8) {
  if (input.size() <= maxLoggedBytes && !mayBeJsonBody(input) && (utf8 == Utf8::known || unicode::isValidUtf8(input))) {
    return std::nullopt;
  }

  // A body that parses is valid UTF-8 (the parser refuses anything else), so
  // repairing it first would change nothing; a text that does not parse may
  // still parse once repaired.
  if (auto compact = compactJsonBody(input)) return boundedJson(std::move(*compact));
  std::optional<std::string> repaired = unicode::repairedUtf8(input);
  if (repaired) {
    if (auto compact = compactJsonBody(*repaired)) return boundedJson(std::move(*compact));
  }
  const std::string_view text = repaired ? std::string_view(*repaired) : input;

  if (text.size() > maxLoggedBytes) {
    const std::string suffix = truncatedPlainSuffix(text.size());
    const std::size_t budget = maxLoggedBytes > suffix.size() ? maxLoggedBytes - suffix.size() : 0;
    const std::string_view kept = utf8Prefix(text, budget);
    std::string cut;
    cut.reserve(kept.size() + suffix.size());
    cut.append(kept).append(suffix);
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
  sanitizeValue(value);
  return value;
}

Json sanitizeDictionary(Json dictionary) { return sanitizeForLog(std::move(dictionary)); }

std::map<std::string, std::string> sanitizeDictionary(std::map<std::string, std::string> dictionary) {
  for (auto it = dictionary.begin(); it != dictionary.end();) {
    if (isRemoved(it->first, &it->second)) {
      it = dictionary.erase(it);
      continue;
    }
    if (auto sanitized = sanitizedText(it->second, Utf8::unchecked)) it->second = std::move(*sanitized);
    ++it;
  }
  return dictionary;
}

std::string truncateBodyText(std::string_view text) {
  auto sanitized = sanitizedText(text, Utf8::unchecked);
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
