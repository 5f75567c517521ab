// Installed font families, as fontconfig lists them.
#pragma once

#include <fontconfig/fontconfig.h>

#include <mutex>

#include "kiv/platform/ui/font.hpp"

namespace kiv {

class FontconfigFontLookup final : public FontLookup {
 public:
  FontconfigFontLookup() = default;
  ~FontconfigFontLookup() override;
  FontconfigFontLookup(const FontconfigFontLookup&) = delete;
  FontconfigFontLookup& operator=(const FontconfigFontLookup&) = delete;

  bool hasFamily(std::string_view familyName) const override;

 private:
  // Calls into one fontconfig configuration are not safe from two threads.
  mutable std::mutex mutex_;
  // Our own configuration rather than the library's process-wide one, so
  // that it is released with this object. Loaded on the first question
  // (reading the font directories takes a while), absent when that failed.
  mutable bool loaded_ = false;
  mutable FcConfig* config_ = nullptr;
};

}  // namespace kiv
