#include "platform/console/debug_line.hpp"

#include "kiv/platform/console.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {

void printDebugLine(std::string_view text) {
  if (auto bundle = platform(); bundle && bundle->console) bundle->console->writeLine(debugQuoted(text));
}

}  // namespace kiv
