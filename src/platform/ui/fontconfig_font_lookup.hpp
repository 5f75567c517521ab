// Installed faces, as fontconfig lists them.
#pragma once

// Exported from the shared library, though not installed: the toolkits built
// beside it (kivfll-gtk) build their views and controllers on these.
#pragma GCC visibility push(default)

#include <fontconfig/fontconfig.h>

#include <mutex>
#include <optional>
#include <string>

#include "kiv/platform/ui/font.hpp"

namespace kiv {

class FontconfigFontLookup final : public FontLookup {
 public:
  FontconfigFontLookup() = default;
  ~FontconfigFontLookup() override;
  FontconfigFontLookup(const FontconfigFontLookup&) = delete;
  FontconfigFontLookup& operator=(const FontconfigFontLookup&) = delete;

  std::optional<FontFace> face(std::string_view name) const override;

 private:
  // The first face whose `property` is exactly `wanted`; mutex_ held.
  std::optional<FontFace> findFace(const char* property, const std::string& wanted) const;

  // Calls into one fontconfig configuration are not safe from two threads.
  mutable std::mutex mutex_;
  // Our own configuration rather than the library's process-wide one, so
  // that it is released with this object. Loaded on the first question
  // (reading the font directories takes a while), absent when that failed.
  mutable bool loaded_ = false;
  mutable FcConfig* config_ = nullptr;
};

}  // namespace kiv

#pragma GCC visibility pop
