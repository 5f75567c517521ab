// Whether a text forms a URL: checked against the URI syntax, then read by
// libcurl's URL parser so that every part of the SDK agrees with the
// transport on what a URL is.
//
//   url::parse("wss://eu/ws")->scheme == "wss"
//   url::parse("example.com")           -> absent (no scheme is guessed)
//   url::isHttp("file:///error")        -> false
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::url {

// The parts of an absolute URL, as the parser normalised them (scheme and
// host in lower case, the path "/" when the URL has none).
struct Parts {
  std::string scheme;
  std::string host;         // empty for URLs without one ("file:///error")
  std::optional<int> port;  // only when the URL names one
  std::string path;
  std::optional<std::string> query;  // without the "?"
};

// Absent unless `text` is an absolute URL: a scheme of any name (http,
// https, wss, file...), only characters a URI may hold (no white space,
// control characters, '"', '<', '>', a backslash, '^', '`', '{', '|', '}'), every
// "%" followed by two hex digits, and a valid host where the scheme has one.
std::optional<Parts> parse(std::string_view text);

// True for an absolute http or https URL with a host.
bool isHttp(std::string_view text);

// Whether following `location` (a Location field's value, absolute or
// relative, as a server sent it) from the URL `from` leads from https down to
// http, where a resent body would travel in clear. A reference without a
// scheme of its own keeps the scheme of `from`.
bool downgradesToHttp(std::string_view from, std::string_view location);

// `text` with its query replaced by `items` in order, each written as
// name=value with both percent-encoded; an empty list removes the query.
// Absent when `text` is not a URL.
std::optional<std::string> replacingQueryItems(std::string_view text,
                                               const std::vector<std::pair<std::string, std::string>>& items);

}  // namespace kiv::url
