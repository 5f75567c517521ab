// Arbitrary error-body text through the message extraction: it must end
// without a crash, a leak or a sanitizer report, and give back either the
// input or a text no longer than it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "service/string_utils.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string raw(reinterpret_cast<const char*>(data), size);
  auto message = kiv::KivStringUtils::extractErrorMessage(raw);
  if (message != raw && message.size() > raw.size()) std::abort();
  auto stripped = kiv::KivStringUtils::stripSurroundingQuotes(raw);
  if (stripped.size() > raw.size()) std::abort();
  return 0;
}
