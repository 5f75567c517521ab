#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "kiv/platform/console.hpp"

namespace kiv {

// Keeps every line for a test to read.
class CapturingConsole final : public Console {
 public:
  void writeLine(std::string_view line) override {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  }
  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace kiv
