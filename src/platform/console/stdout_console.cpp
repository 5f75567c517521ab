#include "platform/console/stdout_console.hpp"

#include <cstdio>

namespace kiv {

void StdoutConsole::writeLine(std::string_view line) {
  std::lock_guard lock(mutex_);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

}  // namespace kiv
