#include "service/response_classification.hpp"

#include "service/body_json.hpp"
#include "base/unicode_text.hpp"

namespace kiv {
namespace {

// What a decoder says when the answer is not the record it expects, and when
// the answer is JSON null where a record was expected.
constexpr std::string_view kNotInCorrectFormat =
    "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
constexpr std::string_view kMissing = "The data couldn\u2019t be read because it is missing.";

constexpr std::string_view kEmptyObject = "{}";

}  // namespace

std::string debugDescription(const Json& object) { return json::dumpCompact(object); }

namespace response_classification {

std::expected<Json, APIServiceError> parseAnswer(std::string_view body, bool emptyIsObject) {
  if (body.empty() && emptyIsObject) body = kEmptyObject;
  auto parsed = parseBody(body);  // rejects ill-formed UTF-8 as well
  if (!parsed) return std::unexpected(APIServiceError::decodingError{std::string(kNotInCorrectFormat)});
  return std::move(*parsed);
}

APIServiceError undecodable(const Json& answer) {
  if (answer.is_object()) return APIServiceError::decodingError{debugDescription(answer)};
  if (answer.is_null()) return APIServiceError::decodingError{std::string(kMissing)};
  return APIServiceError::decodingError{std::string(kNotInCorrectFormat)};
}

APIServiceError httpFailure(std::int64_t statusCode, std::string_view body) {
  return APIServiceError::httpError{statusCode, std::string(unicode::isValidUtf8(body) ? body : kServerError)};
}

}  // namespace response_classification
}  // namespace kiv
