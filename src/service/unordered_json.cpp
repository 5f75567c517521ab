#include "service/unordered_json.hpp"

namespace kiv::unordered_json {

std::optional<UnorderedJson> parse(std::string_view text) {
  UnorderedJson value = UnorderedJson::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::string dumpCompact(const UnorderedJson& value) {
  return value.dump(-1, ' ', false, UnorderedJson::error_handler_t::replace);
}

}  // namespace kiv::unordered_json
