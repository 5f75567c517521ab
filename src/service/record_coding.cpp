#include "service/record_coding.hpp"

namespace kiv::record_coding {

std::expected<Reader, DecodeError> Reader::open(const Json& value) {
  if (!value.is_object()) {
    return std::unexpected(DecodeError{"", "expected object, found " + std::string(json::typeName(value))});
  }
  return Reader(value);
}

std::string Reader::requiredText(std::string_view key) {
  auto value = text(key);
  if (!value && !failed()) fail(missing(key));
  return value.value_or(std::string());
}

DecodeError Reader::nested(std::string_view key, const DecodeError& inner) {
  std::string path(key);
  if (!inner.key.empty()) path += "." + inner.key;
  return DecodeError{std::move(path), inner.message};
}

DecodeError Reader::missing(std::string_view key) const {
  auto it = object_.find(key);
  return DecodeError{std::string(key), it == object_.end() ? "required key is missing" : "required key is null"};
}

}  // namespace kiv::record_coding
