#include "platform/json/json.hpp"

namespace kiv::json {

std::string dumpCompact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

namespace {

struct TooDeep {};

}  // namespace

std::optional<Json> parse(std::string_view text) {
  // Copying, comparing and writing a value recurse once per level, so a
  // value nested without bound (from a hostile answer or a damaged stored
  // item) would overflow the stack long after it was read. The parser itself
  // does not recurse; it is stopped at the first level too many.
  const Json::parser_callback_t boundDepth = [](int depth, Json::parse_event_t event, Json&) {
    if ((event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start) &&
        depth >= static_cast<int>(kMaxDepth)) {
      throw TooDeep{};
    }
    return true;
  };
  try {
    Json value = Json::parse(text.begin(), text.end(), boundDepth, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
  } catch (const TooDeep&) {
    return std::nullopt;
  }
}

bool isInteger(const Json& value) { return value.is_number_integer(); }

bool isNumber(const Json& value) { return value.is_number(); }

std::string_view typeName(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::object:
      return "object";
    case Json::value_t::array:
      return "array";
    case Json::value_t::string:
      return "string";
    case Json::value_t::boolean:
      return "boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return "integer";
    case Json::value_t::number_float:
      return "number";
    default:
      return "unknown";
  }
}

namespace {

// The member under `key`, or null when absent or the container is no object.
const Json* member(const Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) return nullptr;
  return &*it;
}

template <typename T, typename Accepts, typename Convert>
Field<T> read(const Json& object, std::string_view key, std::string_view expected, Accepts accepts, Convert convert) {
  const Json* value = member(object, key);
  if (!value) return std::optional<T>{};
  if (!accepts(*value)) {
    return std::unexpected(
        FieldError{std::string(key), "expected " + std::string(expected) + ", found " + std::string(typeName(*value))});
  }
  return std::optional<T>{convert(*value)};
}

}  // namespace

Field<std::string> optionalString(const Json& object, std::string_view key) {
  return read<std::string>(
      object, key, "string", [](const Json& v) { return v.is_string(); },
      [](const Json& v) { return v.get<std::string>(); });
}

Field<std::int64_t> optionalInt(const Json& object, std::string_view key) {
  return read<std::int64_t>(
      object, key, "integer",
      [](const Json& v) {
        return v.is_number_integer() && !(v.is_number_unsigned() && v.get<std::uint64_t>() > INT64_MAX);
      },
      [](const Json& v) { return v.get<std::int64_t>(); });
}

Field<double> optionalDouble(const Json& object, std::string_view key) {
  return read<double>(
      object, key, "number", [](const Json& v) { return v.is_number(); },
      [](const Json& v) { return v.get<double>(); });
}

Field<bool> optionalBool(const Json& object, std::string_view key) {
  return read<bool>(
      object, key, "boolean", [](const Json& v) { return v.is_boolean(); },
      [](const Json& v) { return v.get<bool>(); });
}

Field<Json> optionalObject(const Json& object, std::string_view key) {
  return read<Json>(
      object, key, "object", [](const Json& v) { return v.is_object(); }, [](const Json& v) { return v; });
}

Field<Json> optionalArray(const Json& object, std::string_view key) {
  return read<Json>(
      object, key, "array", [](const Json& v) { return v.is_array(); }, [](const Json& v) { return v; });
}

}  // namespace kiv::json
