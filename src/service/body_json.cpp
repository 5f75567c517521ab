#include "service/body_json.hpp"

namespace kiv {

// json::parse already bounds the depth and takes linear time, which is what
// an answer from the network needs; the bound is the same one.
static_assert(kMaxBodyNesting == json::kMaxDepth);

std::optional<Json> parseBody(std::string_view text) { return json::parse(text); }

std::optional<Json> parseContainerBody(std::string_view text) {
  auto value = parseBody(text);
  if (!value || !value->is_structured()) return std::nullopt;
  return value;
}

}  // namespace kiv
