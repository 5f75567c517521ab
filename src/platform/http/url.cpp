#include "platform/http/url.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
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

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// The characters a URI may hold at all: unreserved, sub-delims, gen-delims
// and "%".
bool isUriCharacter(char c) {
  constexpr std::string_view kPunctuation = "-._~!$&'()*+,;=:/?#[]@%";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kPunctuation.find(c) != std::string_view::npos;
}

// libcurl's parser is lenient: it passes '"', '<', '>', a backslash, '{', '|', a
// stray "%" and brackets in the path on to the request line as they are.
// Those texts are not URLs: every "%" starts an escape of two hex digits,
// brackets appear only around an IP literal host, and "#" at most once.
bool hasUriSyntax(std::string_view text) {
  const auto authority = text.find("//");
  const auto pathStart = authority == std::string_view::npos ? text.find_first_of("/?#", text.find(':') + 1)
                                                             : text.find_first_of("/?#", authority + 2);
  bool fragment = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!isUriCharacter(c)) return false;
    if (c == '%' && (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2]))) return false;
    if ((c == '[' || c == ']') && (authority == std::string_view::npos || i >= pathStart)) return false;
    if (c == '#') {
      if (fragment) return false;
      fragment = true;
    }
  }
  return true;
}

UrlHandle parsed(std::string_view text) {
  // Also refuses an embedded NUL, which curl_url_set would take for the end
  // of the text and so let a non-URL pass.
  if (!hasUriSyntax(text)) return nullptr;
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

// The scheme a reference names, read the way a redirect target is: leading
// white space skipped, then ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ) before
// the first ":". Empty for a relative reference. No further syntax is asked
// for, so that no spelling of a scheme passes unseen.
std::string_view schemeOf(std::string_view reference) {
  const auto start = reference.find_first_not_of(" \t\r\n\v\f");
  if (start == std::string_view::npos) return {};
  reference.remove_prefix(start);
  const auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  for (std::size_t i = 0; i < reference.size(); ++i) {
    const char c = reference[i];
    if (c == ':') return reference.substr(0, i);
    if (!isAlpha(c) && !(i > 0 && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'))) return {};
  }
  return {};
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
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
  if (!parts || (parts->scheme != "http" && parts->scheme != "https") || parts->host.empty()) return false;
  // libcurl reads "http:///x/" and "http:/x" as the host x; both name no
  // host, so neither is an http URL.
  const auto authority = text.find("://");
  return authority != std::string_view::npos && text.find_first_of("/?#", authority + 3) != authority + 3 &&
         authority + 3 < text.size();
}

bool downgradesToHttp(std::string_view from, std::string_view location) {
  return equalsIgnoringCase(schemeOf(from), "https") && equalsIgnoringCase(schemeOf(location), "http");
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
