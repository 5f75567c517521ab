// Fonts: a family name and a point size, and the question whether the
// system has a family of a given name at all.
#pragma once

#include <string>
#include <string_view>

namespace kiv {

struct Font {
  std::string name;
  double pointSize = 0;
  friend bool operator==(const Font&, const Font&) = default;
};

class FontLookup {
 public:
  virtual ~FontLookup() = default;
  // True when an installed font's family name is exactly `familyName`
  // (case-sensitive, no substitution). Safe from any thread.
  virtual bool hasFamily(std::string_view familyName) const = 0;
};

}  // namespace kiv
