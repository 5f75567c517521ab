#pragma once

#include <string_view>

namespace kiv {

// Writes `text` in its quoted debug form as one line on the installed
// console; nothing when no console is installed.
void printDebugLine(std::string_view text);

}  // namespace kiv
