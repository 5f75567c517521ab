#include "service/string_utils.hpp"

#include <utf8proc.h>

#include <array>
#include <cstddef>

#include "base/unicode_text.hpp"
#include "service/body_json.hpp"

namespace kiv::KivStringUtils {
namespace {

constexpr std::array<std::string_view, 2> kMessageKeys{"message", "Message"};
constexpr std::array<std::string_view, 2> kMessagesKeys{"messages", "Messages"};
constexpr std::string_view kErrorKey = "error";
constexpr char kQuote = '"';
constexpr char kBackslash = '\\';
constexpr char kSlash = '/';

// --- Unicode: user-perceived characters ---------------------------------------

// An invalid byte (-1) breaks on both sides.
utf8proc_int32_t codePointAt(std::string_view text, std::size_t at) {
  const auto scalar = unicode::scalarAt(text, at);
  return scalar.valid ? static_cast<utf8proc_int32_t>(scalar.value) : -1;
}

bool graphemeBreakBetween(utf8proc_int32_t before, utf8proc_int32_t after) {
  if (before < 0 || after < 0) return true;
  utf8proc_int32_t state = 0;
  return utf8proc_grapheme_break_stateful(before, after, &state);
}

// Whether the text's first (last) user-perceived character is a lone double
// quote: a quote carrying a combining mark is another character.
bool startsWithQuoteCharacter(std::string_view text) {
  if (text.empty() || text.front() != kQuote) return false;
  return text.size() == 1 || graphemeBreakBetween(kQuote, codePointAt(text, 1));
}

bool endsWithQuoteCharacter(std::string_view text) {
  if (text.empty() || text.back() != kQuote) return false;
  if (text.size() == 1) return true;
  std::size_t lead = text.size() - 2;
  while (lead > 0 && text.size() - 1 - lead < 4 && (static_cast<unsigned char>(text[lead]) & 0xC0) == 0x80) --lead;
  const auto previous = unicode::scalarAt(text, lead);
  const bool endsBeforeQuote = previous.valid && lead + previous.length == text.size() - 1;
  return graphemeBreakBetween(endsBeforeQuote ? static_cast<utf8proc_int32_t>(previous.value) : -1, kQuote);
}

// --- The message shapes ------------------------------------------------------

std::optional<std::string> textAt(const Json& object, std::string_view key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

// A list counts only when every element is a text.
const Json* textListAt(const Json& object, std::string_view key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_array()) return nullptr;
  for (const auto& element : *it) {
    if (!element.is_string()) return nullptr;
  }
  return &*it;
}

const Json* errorObject(const Json& object) {
  auto it = object.find(kErrorKey);
  if (it == object.end() || !it->is_object()) return nullptr;
  return &*it;
}

// "message", else "Message"; an empty text counts.
std::optional<std::string> singleMessage(const Json& object) {
  for (auto key : kMessageKeys) {
    if (auto text = textAt(object, key)) return text;
  }
  return std::nullopt;
}

// The first element of "messages", else of "Messages"; only the first list
// found is looked at, and its first element counts only when not empty.
std::optional<std::string> firstOfMessages(const Json& object) {
  for (auto key : kMessagesKeys) {
    if (const Json* list = textListAt(object, key)) {
      if (list->empty() || list->front().get_ref<const std::string&>().empty()) return std::nullopt;
      return list->front().get<std::string>();
    }
  }
  return std::nullopt;
}

using Shape = std::optional<std::string> (*)(const Json&);

// `shape` on the object itself, then on its "error" object.
std::optional<std::string> directOrUnderError(const Json& object, Shape shape) {
  if (auto found = shape(object)) return found;
  if (const Json* error = errorObject(object)) return shape(*error);
  return std::nullopt;
}

std::optional<std::string> findInObject(const Json& object) {
  if (auto found = singleMessage(object)) return found;
  if (auto found = firstOfMessages(object)) return found;
  if (const Json* error = errorObject(object)) {
    if (auto found = singleMessage(*error)) return found;
    if (auto found = firstOfMessages(*error)) return found;
  }
  for (const auto& value : object) {
    if (auto found = findMessage(value)) return found;
  }
  return std::nullopt;
}

// A single message anywhere in the list beats a list of messages, which beats
// anything nested deeper.
std::optional<std::string> findInList(const Json& list) {
  for (Shape shape : {Shape{singleMessage}, Shape{firstOfMessages}}) {
    for (const auto& element : list) {
      if (!element.is_object()) continue;
      if (auto found = directOrUnderError(element, shape)) return found;
    }
  }
  for (const auto& element : list) {
    if (auto found = findMessage(element)) return found;
  }
  return std::nullopt;
}

// Undoes one level of string-literal escaping as backends produce it: a
// backslash before a double quote or a slash goes.
std::string unescapeQuotesAndSlashes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == kBackslash && i + 1 < text.size() && (text[i + 1] == kQuote || text[i + 1] == kSlash)) continue;
    out.push_back(text[i]);
  }
  return out;
}

std::optional<std::string> messageInJson(std::string_view text) {
  auto parsed = parseContainerBody(text);
  if (!parsed) return std::nullopt;
  auto found = findMessage(*parsed);
  if (!found) return std::nullopt;
  return stripSurroundingQuotes(*found);
}

}  // namespace

std::optional<std::string> findMessage(const Json& value) {
  if (value.is_object()) return findInObject(value);
  if (value.is_array()) return findInList(value);
  return std::nullopt;
}

std::string stripSurroundingQuotes(std::string_view text) {
  auto trimmed = unicode::trimWhiteSpaceAndNewlines(text);
  if (trimmed.size() >= 2 && startsWithQuoteCharacter(trimmed) && endsWithQuoteCharacter(trimmed)) {
    trimmed = trimmed.substr(1, trimmed.size() - 2);
  }
  return std::string(trimmed);
}

std::string extractErrorMessage(const std::optional<std::string>& raw) {
  if (!raw || raw->empty()) return {};
  if (raw->size() > kMaxParsedErrorBody) return *raw;
  if (auto found = messageInJson(*raw)) return *found;

  auto trimmed = unicode::trimWhiteSpaceAndNewlines(*raw);
  if (startsWithQuoteCharacter(trimmed) && endsWithQuoteCharacter(trimmed)) {
    auto inner = trimmed.size() >= 2 ? trimmed.substr(1, trimmed.size() - 2) : std::string_view{};
    if (auto found = messageInJson(unescapeQuotesAndSlashes(inner))) return *found;
  }
  return *raw;
}

}  // namespace kiv::KivStringUtils
