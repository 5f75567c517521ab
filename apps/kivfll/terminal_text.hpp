// Text that came from outside (a backend's error message, a request's path)
// made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace kiv::cli {

// `text` with every control character (C0, DEL and the C1 range) and every
// byte that is not part of well-formed UTF-8 written as an escape (\x1b,
// \u009b), so that no text can move the cursor, clear the screen or retitle
// the window. Printable text, line feeds aside, comes out unchanged.
std::string terminalSafe(std::string_view text);

}  // namespace kiv::cli
