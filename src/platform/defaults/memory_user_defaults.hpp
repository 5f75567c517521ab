// In-memory user defaults for tests.
#pragma once

#include <map>
#include <mutex>

#include "kiv/platform/user_defaults.hpp"

namespace kiv {

class MemoryUserDefaults final : public UserDefaults {
 public:
  std::optional<std::string> string(std::string_view key) override {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
  }
  void setString(std::string_view key, std::string_view value) override {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::string(value));
  }
  void remove(std::string_view key) override {
    std::lock_guard lock(mutex_);
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> values_;
};

}  // namespace kiv
