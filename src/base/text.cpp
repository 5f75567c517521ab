#include "base/text.hpp"

#include <sodium.h>

namespace kiv {

std::string_view trimmed(std::string_view text, std::string_view blanks) {
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string asciiLowercased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

namespace {
// The codec needs no keys, but the library wants initialising once per
// process; sodium_init is itself safe to race, the static keeps it cheap.
void initialiseSodium() { [[maybe_unused]] static const int ready = sodium_init(); }
}  // namespace

std::string base64Encoded(std::string_view bytes) {
  initialiseSodium();
  constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    kVariant);
  text.resize(text.size() - 1);  // the terminating NUL
  return text;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  initialiseSodium();
  // A padded quantum of four characters yields at most three bytes; the
  // spare bytes keep the buffer non-empty for an empty text.
  std::string bytes(text.size() / 4 * 3 + 3, '\0');
  std::size_t length = 0;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.data(), text.size(),
                        /*ignore=*/nullptr, &length, /*b64_end=*/nullptr, sodium_base64_VARIANT_ORIGINAL) != 0) {
    return std::nullopt;
  }
  bytes.resize(length);
  return bytes;
}

}  // namespace kiv
