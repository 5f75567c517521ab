// Installed font families, as fontconfig lists them.
#pragma once

#include <mutex>

#include "kiv/platform/ui/font.hpp"

namespace kiv {

class FontconfigFontLookup final : public FontLookup {
 public:
  bool hasFamily(std::string_view familyName) const override;

 private:
  // Calls into one fontconfig configuration are not safe from two threads.
  mutable std::mutex mutex_;
};

}  // namespace kiv
