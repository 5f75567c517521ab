// The mobile token is host input: any bytes must give a value or absent,
// never a crash, and the console lines must stay the documented ones.
#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "kiv/platform/platform.hpp"
#include "platform/console/capturing_console.hpp"
#include "service/jwt_decoder.hpp"

namespace {

std::shared_ptr<kiv::CapturingConsole> installConsole() {
  auto console = std::make_shared<kiv::CapturingConsole>();
  kiv::Platform bundle;
  bundle.console = console;
  kiv::installPlatform(std::move(bundle));
  return console;
}

// issuer writes exactly one of its four lines when it gives absent, none otherwise.
void checkIssuer(std::string_view token, kiv::CapturingConsole& console) {
  static constexpr std::array<std::string_view, 4> kLines{R"("Invalid JWT token")", R"("Failed to decode payload")",
                                                          R"("Failed to parse JSON payload")",
                                                          R"("Issuer (iss) claim not found in the token")"};
  console.clear();
  const auto issuer = kiv::KivJWTDecoder::issuer(token);
  const auto lines = console.lines();
  if (issuer) {
    if (!lines.empty()) std::abort();
    return;
  }
  if (lines.size() != 1 || std::ranges::find(kLines, lines.front()) == kLines.end()) std::abort();
}

std::string base64Url(std::string_view bytes) {
  std::string out(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING), '\0');
  sodium_bin2base64(out.data(), out.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  out.pop_back();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto console = installConsole();
  const std::string_view input(reinterpret_cast<const char*>(data), size);

  // The input as a whole token, and as the payload of a well-formed one so
  // that the JSON and record stages see arbitrary bytes too.
  const std::string wrapped = "eyJhbGciOiJIUzI1NiJ9." + base64Url(input) + ".c2ln";
  for (std::string_view token : {input, std::string_view(wrapped)}) {
    checkIssuer(token, *console);
    console->clear();
    (void)kiv::KivJWTDecoder::serviceLocation(token);
    if (!console->lines().empty()) std::abort();
  }

  // Decoding agrees with encoding for whatever decodes.
  if (const auto bytes = kiv::KivJWTDecoder::base64UrlDecode(input)) {
    std::string canonical = base64Url(*bytes);
    if (kiv::KivJWTDecoder::base64UrlDecode(canonical) != bytes) std::abort();
  }
  return 0;
}
