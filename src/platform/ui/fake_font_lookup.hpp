// A fixed list of font families, for tests and for hosts without fonts.
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "kiv/platform/ui/font.hpp"

namespace kiv {

class FakeFontLookup final : public FontLookup {
 public:
  using Families = std::set<std::string, std::less<>>;
  explicit FakeFontLookup(Families families = {}) : families_(std::move(families)) {}

  bool hasFamily(std::string_view familyName) const override {
    std::lock_guard lock(mutex_);
    return families_.contains(familyName);
  }
  void add(std::string family) {
    std::lock_guard lock(mutex_);
    families_.insert(std::move(family));
  }

 private:
  mutable std::mutex mutex_;
  Families families_;
};

}  // namespace kiv
