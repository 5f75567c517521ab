#include "service/body_json.hpp"

#include <string>

namespace kiv {
namespace {

// A first pass that builds nothing and stops at the first level too deep.
class NestingProbe final : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return enter(); }
  bool key(string_t&) override { return true; }
  bool end_object() override { return leave(); }
  bool start_array(std::size_t) override { return enter(); }
  bool end_array() override { return leave(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

 private:
  bool enter() { return ++depth_ <= kMaxBodyNesting; }
  bool leave() {
    --depth_;
    return true;
  }
  std::size_t depth_ = 0;
};

}  // namespace

std::optional<Json> parseBody(std::string_view text) {
  NestingProbe probe;
  if (!Json::sax_parse(text.begin(), text.end(), &probe)) return std::nullopt;
  return json::parse(text);
}

std::optional<Json> parseContainerBody(std::string_view text) {
  auto value = parseBody(text);
  if (!value || !value->is_structured()) return std::nullopt;
  return value;
}

}  // namespace kiv
