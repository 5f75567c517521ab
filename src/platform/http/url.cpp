#include "platform/http/url.hpp"

#include <curl/curl.h>

#include <charconv>
#include <memory>

namespace kiv::url {
namespace {

struct UrlDeleter {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlDeleter>;

// Any scheme is accepted: the capture vendor's streaming URL is wss, and the
// backend service's fallback is a file URL.
constexpr unsigned int kParseFlags = CURLU_NON_SUPPORT_SCHEME;

UrlHandle parsed(std::string_view text) {
  // curl_url_set reads a C string: an embedded NUL would cut the text short
  // and let a non-URL pass.
  if (text.find('\0') != std::string_view::npos) return nullptr;
  UrlHandle handle(curl_url());
  if (!handle) return nullptr;
  const std::string copy(text);
  if (curl_url_set(handle.get(), CURLUPART_URL, copy.c_str(), kParseFlags) != CURLUE_OK) return nullptr;
  return handle;
}

std::optional<std::string> part(CURLU* handle, CURLUPart which) {
  char* value = nullptr;
  if (curl_url_get(handle, which, &value, 0) != CURLUE_OK || value == nullptr) return std::nullopt;
  std::string out(value);
  curl_free(value);
  return out;
}

}  // namespace

std::optional<Parts> parse(std::string_view text) {
  const auto handle = parsed(text);
  if (!handle) return std::nullopt;
  Parts parts;
  parts.scheme = part(handle.get(), CURLUPART_SCHEME).value_or("");
  parts.host = part(handle.get(), CURLUPART_HOST).value_or("");
  parts.path = part(handle.get(), CURLUPART_PATH).value_or("/");
  parts.query = part(handle.get(), CURLUPART_QUERY);
  if (const auto port = part(handle.get(), CURLUPART_PORT)) {
    int number = 0;
    const auto [end, error] = std::from_chars(port->data(), port->data() + port->size(), number);
    if (error == std::errc{} && end == port->data() + port->size()) parts.port = number;
  }
  if (parts.scheme.empty()) return std::nullopt;
  return parts;
}

bool isHttp(std::string_view text) {
  const auto parts = parse(text);
  return parts && (parts->scheme == "http" || parts->scheme == "https") && !parts->host.empty();
}

std::optional<std::string> replacingQueryItems(std::string_view text,
                                               const std::vector<std::pair<std::string, std::string>>& items) {
  const auto handle = parsed(text);
  if (!handle) return std::nullopt;
  if (curl_url_set(handle.get(), CURLUPART_QUERY, nullptr, 0) != CURLUE_OK) return std::nullopt;
  for (const auto& [name, value] : items) {
    // URLENCODE with APPENDQUERY encodes the name and the value separately
    // and keeps the first "=" between them.
    const std::string item = name + "=" + value;
    if (curl_url_set(handle.get(), CURLUPART_QUERY, item.c_str(), CURLU_APPENDQUERY | CURLU_URLENCODE) != CURLUE_OK) {
      return std::nullopt;
    }
  }
  return part(handle.get(), CURLUPART_URL);
}

}  // namespace kiv::url
