#pragma once

#include <mutex>

#include "kiv/platform/console.hpp"

namespace kiv {

// Lines on standard output, flushed one by one so they interleave sanely with
// the host's own output.
class StdoutConsole final : public Console {
 public:
  void writeLine(std::string_view line) override;

 private:
  std::mutex mutex_;
};

}  // namespace kiv
