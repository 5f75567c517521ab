// Every telemetry value passes the sanitiser: whatever the text, the result
// is valid UTF-8 within the bound, and nothing crashes or recurses deeply.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "base/json.hpp"
#include "base/unicode_text.hpp"
#include "service/log_sanitizer.hpp"

namespace {

void checkBounded(std::string_view text) {
  if (text.size() > kiv::maxLoggedBytes || !kiv::unicode::isValidUtf8(text)) std::abort();
}

void checkBoundedValues(const kiv::Json& value) {
  if (value.is_string()) checkBounded(value.get_ref<const std::string&>());
  if (value.is_structured()) {
    for (const auto& child : value) checkBoundedValues(child);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);

  // The vectorised check against a decoder that knows nothing of it: valid
  // text is exactly the text that decodes to itself.
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
  if (kiv::unicode::isValidUtf8(input) != (kiv::unicode::decodeUtf8Lossy({bytes, size}) == input)) std::abort();

  const std::string body = kiv::truncateBodyText(input);
  checkBounded(body);
  // Bodies are parsed before they are repaired; repairing first must not
  // change the result.
  if (auto repaired = kiv::unicode::repairedUtf8(input); repaired && kiv::truncateBodyText(*repaired) != body) {
    std::abort();
  }

  // Long enough to be cut: repeat the input past the bound. Costly, so only
  // for inputs whose last byte asks for it.
  if (!input.empty() && input.back() % 16 == 0) {
    std::string large(input);
    while (large.size() <= kiv::maxLoggedBytes) large += large;
    checkBounded(kiv::truncateBodyText(large));
  }

  // utf8Prefix with a budget taken from the first byte.
  const std::size_t budget = size > 0 ? data[0] % 16 : 0;
  const std::string_view prefix = kiv::utf8Prefix(input, budget);
  if (prefix.size() > budget || input.substr(0, prefix.size()) != prefix) std::abort();
  if (kiv::unicode::isValidUtf8(input) && !kiv::unicode::isValidUtf8(prefix)) std::abort();

  if (auto parsed = kiv::json::parse(input)) {
    const kiv::Json sanitized = kiv::sanitizeForLog(*parsed);
    if (sanitized.type() != parsed->type()) std::abort();
    checkBoundedValues(sanitized);
    // A body is sanitised while it is parsed; a value the caller built is
    // walked afterwards. Both must agree, once the value's keys are sorted
    // as a body's are.
    if (sanitized.is_structured()) {
      const std::string walked =
          nlohmann::json(sanitized).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
      const std::string expected =
          walked.size() > kiv::maxLoggedBytes ? kiv::truncatedJsonMarker(walked.size()) : walked;
      if (body != expected) std::abort();
    }
  }

  const auto texts = kiv::sanitizeDictionary(std::map<std::string, std::string>{
      {"data", std::string(input)}, {"requestBody", std::string(input)}, {"imgData", std::string(input)}});
  if (texts.contains("imgData")) std::abort();
  for (const auto& [key, value] : texts) checkBounded(value);
  return 0;
}
