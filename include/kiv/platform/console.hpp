// Local diagnostics: single lines on standard output.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <string>
#include <string_view>

namespace kiv {

class Console {
 public:
  virtual ~Console() = default;
  // Writes `line` and a line feed. Safe from any thread; lines never interleave.
  virtual void writeLine(std::string_view line) = 0;
};

// The quoted debug form of a text: the text in double quotes, with the double
// quote, the single quote and the backslash escaped by a backslash, and line
// feed, tab, carriage return and NUL written as \n, \t, \r and \0.
std::string debugQuoted(std::string_view text);

}  // namespace kiv

#pragma GCC visibility pop
