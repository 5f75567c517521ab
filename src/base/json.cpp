#include "base/json.hpp"

#include <cmath>
#include <iterator>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kiv::json {

std::string dumpCompact(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

namespace {

// Builds the SDK's Json from SAX events in time linear in the text.
//
// nlohmann's own DOM parser inserts every object member with the ordered
// map's operator[], a linear search over the members so far, so an object of
// n members costs O(n^2): a 1 MB answer of short members takes seconds. Here
// each open object keeps a hash index of its keys beside it; members are
// appended, and a repeated key overwrites the earlier value in its first
// position, as operator[] would.
//
// Copying, comparing and writing a value recurse once per level, so a value
// nested without bound (from a hostile answer or a damaged stored item) would
// overflow the stack long after it was read. The parser itself does not
// recurse; the build stops at the first level too many.
class LinearBuilder final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return place(Json(nullptr)); }
  bool boolean(bool value) override { return place(Json(value)); }
  bool number_integer(number_integer_t value) override { return place(Json(value)); }
  bool number_unsigned(number_unsigned_t value) override { return place(Json(value)); }
  bool number_float(number_float_t value, const string_t&) override { return place(Json(value)); }
  bool string(string_t& value) override { return place(Json(std::move(value))); }
  bool binary(binary_t& value) override { return place(Json::binary(std::move(value))); }

  bool start_object(std::size_t) override { return open(Json::object()); }
  bool start_array(std::size_t) override { return open(Json::array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    Open& top = open_.back();
    auto& members = top.value->get_ref<Json::object_t&>();
    const auto [at, added] = top.keys.try_emplace(name, members.size());
    if (added) members.emplace_back(std::move(name), nullptr);
    // The vector's own indexing: the ordered map's operator[] takes a key.
    member_ = &std::next(members.begin(), static_cast<std::ptrdiff_t>(at->second))->second;
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

  Json take() { return std::move(root_); }

 private:
  struct Open {
    Json* value;
    std::unordered_map<std::string, std::size_t> keys;  // objects only
  };

  // Where the next value goes: the root, the end of the open array, or the
  // slot of the key just read.
  Json* slot() {
    if (open_.empty()) return &root_;
    Json& top = *open_.back().value;
    if (top.is_array()) return &top.get_ref<Json::array_t&>().emplace_back();
    return member_;
  }

  bool place(Json&& value) {
    *slot() = std::move(value);
    return true;
  }

  bool open(Json&& container) {
    if (open_.size() >= kMaxDepth) return false;
    Json* at = slot();
    *at = std::move(container);
    open_.push_back(Open{at, {}});
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  Json root_;
  std::vector<Open> open_;
  Json* member_ = nullptr;
};

}  // namespace

std::optional<Json> parse(std::string_view text) {
  LinearBuilder builder;
  if (!Json::sax_parse(text.begin(), text.end(), &builder)) return std::nullopt;
  return builder.take();
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

// A number text is one value however it is written: "2.0" and "1e0" read as
// floating numbers but name integers, and the phone platform's decoder takes
// them for an integer field. 2^63 is exactly representable, so the upper
// bound is exclusive.
bool isIntegralInRange(double value) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  return std::isfinite(value) && std::trunc(value) == value && value >= -kTwoTo63 && value < kTwoTo63;
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
        if (v.is_number_float()) return isIntegralInRange(v.get<double>());
        return v.is_number_integer() && !(v.is_number_unsigned() && v.get<std::uint64_t>() > INT64_MAX);
      },
      [](const Json& v) {
        return v.is_number_float() ? static_cast<std::int64_t>(v.get<double>()) : v.get<std::int64_t>();
      });
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
