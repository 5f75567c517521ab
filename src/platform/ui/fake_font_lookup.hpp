// A fixed list of faces, for tests and for hosts without fonts. It answers
// like the fontconfig lookup: family first, then PostScript name, then full
// name, byte for byte.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "kiv/platform/ui/font.hpp"

namespace kiv {

class FakeFontLookup final : public FontLookup {
 public:
  struct Face {
    std::string family;
    std::string style;
    std::string postScriptName;
    std::string fullName;
  };
  using Families = std::set<std::string, std::less<>>;

  // Families known by their family name only.
  explicit FakeFontLookup(Families families = {}) {
    for (const auto& family : families) faces_.push_back(Face{family, {}, {}, {}});
  }
  explicit FakeFontLookup(std::vector<Face> faces) : faces_(std::move(faces)) {}

  std::optional<FontFace> face(std::string_view name) const override {
    if (name.empty()) return std::nullopt;
    std::lock_guard lock(mutex_);
    for (const auto& face : faces_) {
      if (face.family == name) return FontFace{face.family};
    }
    for (const auto field : {&Face::postScriptName, &Face::fullName}) {
      for (const auto& face : faces_) {
        if (face.*field != name) continue;
        return FontFace{face.family, face.style.empty() ? std::nullopt : std::optional(face.style)};
      }
    }
    return std::nullopt;
  }
  void add(Face face) {
    std::lock_guard lock(mutex_);
    faces_.push_back(std::move(face));
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Face> faces_;
};

}  // namespace kiv
