// The headers every request to the maker's backend carries, analytics posts
// included: nothing on the way may cache an answer, and the mobile token
// goes as it is stored, with no scheme word.
#pragma once

#include <string>
#include <string_view>

#include "kiv/platform/http.hpp"

namespace kiv {

inline constexpr std::string_view kAuthorizationHeader = "Authorization";
inline constexpr std::string_view kJsonContentType = "application/json";

inline constexpr std::string_view kCacheControlHeader = "Cache-Control";
inline constexpr std::string_view kCacheControlValue = "no-cache, no-store, must-revalidate";
inline constexpr std::string_view kPragmaHeader = "Pragma";
inline constexpr std::string_view kPragmaValue = "no-cache";
inline constexpr std::string_view kExpiresHeader = "Expires";
inline constexpr std::string_view kExpiresValue = "0";

// Cache-Control, Pragma and Expires, in that order.
inline void setNoCacheHeaders(HttpRequest& request) {
  request.setValue(std::string(kCacheControlValue), std::string(kCacheControlHeader));
  request.setValue(std::string(kPragmaValue), std::string(kPragmaHeader));
  request.setValue(std::string(kExpiresValue), std::string(kExpiresHeader));
}

}  // namespace kiv
