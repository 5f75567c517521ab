// Reading and writing the backend's JSON records, field by field, with one
// rule set for all of them: absent or null reads as absent, a present key of
// the wrong type fails the record (the first failure is kept, with its dotted
// key path), unknown keys are ignored, and absent fields are not written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/json.hpp"
#include "service/session_format.hpp"

namespace kiv::record_coding {

class Reader {
 public:
  // Fails unless `value` is a JSON object.
  static std::expected<Reader, DecodeError> open(const Json& value);

  std::optional<std::string> text(std::string_view key) { return take(json::optionalString(object_, key)); }
  std::optional<std::int64_t> integer(std::string_view key) { return take(json::optionalInt(object_, key)); }
  std::optional<bool> boolean(std::string_view key) { return take(json::optionalBool(object_, key)); }

  // Absent and null both fail: the key is required.
  std::string requiredText(std::string_view key);

  template <typename R>
  std::optional<R> record(std::string_view key) {
    auto object = take(json::optionalObject(object_, key));
    if (!object) return std::nullopt;
    auto decoded = R::decode(*object);
    if (!decoded) {
      fail(nested(key, decoded.error()));
      return std::nullopt;
    }
    return std::move(*decoded);
  }

  template <typename R>
  R requiredRecord(std::string_view key) {
    auto value = record<R>(key);
    if (!value && !failed()) fail(missing(key));
    return value ? std::move(*value) : R{};
  }

  // The record read so far, or the first failure.
  template <typename R>
  std::expected<R, DecodeError> finish(R value) {
    if (error_) return std::unexpected(std::move(*error_));
    return value;
  }

  bool failed() const { return error_.has_value(); }

 private:
  explicit Reader(const Json& object) : object_(object) {}

  template <typename T>
  std::optional<T> take(json::Field<T> field) {
    if (field) return std::move(*field);
    fail(std::move(field.error()));
    return std::nullopt;
  }

  void fail(DecodeError error) {
    if (!error_) error_ = std::move(error);
  }
  static DecodeError nested(std::string_view key, const DecodeError& inner);
  DecodeError missing(std::string_view key) const;

  const Json& object_;
  std::optional<DecodeError> error_;
};

// Writes `value` under `key` when present; records through their encode().
template <typename T>
void put(Json& object, std::string_view key, const std::optional<T>& value) {
  if (!value) return;
  if constexpr (requires { value->encode(); }) {
    object[std::string(key)] = value->encode();
  } else {
    object[std::string(key)] = *value;
  }
}

// Records made only of optional texts are described once, as a table of
// (key, member) in wire order, and coded from it.
template <typename R, std::size_t N>
using TextFields = std::array<std::pair<std::string_view, std::optional<std::string> R::*>, N>;

template <typename R, std::size_t N>
Json encodeTexts(const R& record, const TextFields<R, N>& fields) {
  Json object = Json::object();
  for (const auto& [key, member] : fields) put(object, key, record.*member);
  return object;
}

template <typename R, std::size_t N>
std::expected<R, DecodeError> decodeTexts(const Json& value, const TextFields<R, N>& fields) {
  auto reader = Reader::open(value);
  if (!reader) return std::unexpected(reader.error());
  R record;
  for (const auto& [key, member] : fields) record.*member = reader->text(key);
  return reader->finish(std::move(record));
}

}  // namespace kiv::record_coding
