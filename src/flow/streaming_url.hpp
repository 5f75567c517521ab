// Where the capture vendor streams to: the service location that the host's
// mobile token names for the capture supplier, or the vendor's default
// endpoint.
//
//   streamingURL("  eu \n")          == "wss://eu/ws"
//   streamingURL("wss://eu")         == kDefaultStreamingURL   (already a URL)
//   streamingURL("e u")              == kDefaultStreamingURL
//   streamingURL(std::nullopt)       == kDefaultStreamingURL
//
// The flow launches only against text that isStreamingURL accepts.
//
// Stateless; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv {

// A deployment value: the vendor's own endpoint goes here once the supplier
// names it (reserved .example domain until then).
inline constexpr std::string_view kDefaultStreamingURL = "wss://stream.capture.kiv.example/ws";

// "wss://" + the location + "/ws" when the location, trimmed of white space
// and line breaks, is not empty and holds neither a blank nor "://";
// kDefaultStreamingURL otherwise.
std::string streamingURL(const std::optional<std::string>& serviceLocation);

// streamingURL of the service location in the mobile token's payload (absent
// when the token does not decode).
std::string streamingURLForMobileToken(std::string_view mobileToken);

// Whether `text` forms a URL, by the same parser the transport uses; wss is
// a scheme like any other to it. False for a location that smuggled white
// space or a malformed host into the URL ("wss://eu\twest/ws").
bool isStreamingURL(std::string_view text);

}  // namespace kiv
