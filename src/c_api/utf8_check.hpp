// Whether C text is well-formed UTF-8 before it goes further into the SDK.
#pragma once

#include <string_view>

namespace kiv::c_api {

// True for well-formed UTF-8: no stray or truncated sequences, no overlong
// forms, no surrogates, nothing above U+10FFFF.
bool isWellFormedUtf8(std::string_view text) noexcept;

}  // namespace kiv::c_api
