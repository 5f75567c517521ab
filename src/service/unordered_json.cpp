#include "service/unordered_json.hpp"

namespace kiv::unordered_json {

namespace {

struct TooDeep {};

}  // namespace

std::optional<UnorderedJson> parse(std::string_view text) {
  // Writing the value out recurses once per level: the same bound as the
  // SDK's Json keeps a hostile body from exhausting the stack.
  const UnorderedJson::parser_callback_t boundDepth = [](int depth, UnorderedJson::parse_event_t event,
                                                         UnorderedJson&) {
    if ((event == UnorderedJson::parse_event_t::object_start || event == UnorderedJson::parse_event_t::array_start) &&
        depth >= static_cast<int>(json::kMaxDepth)) {
      throw TooDeep{};
    }
    return true;
  };
  try {
    UnorderedJson value = UnorderedJson::parse(text.begin(), text.end(), boundDepth, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
  } catch (const TooDeep&) {
    return std::nullopt;
  }
}

std::string dumpCompact(const UnorderedJson& value) {
  return value.dump(-1, ' ', false, UnorderedJson::error_handler_t::replace);
}

}  // namespace kiv::unordered_json
