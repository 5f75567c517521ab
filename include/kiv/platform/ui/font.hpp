// Fonts: a face (family and style) at a point size, and the question which
// installed face a name given by a host stands for.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <optional>
#include <string>
#include <string_view>

namespace kiv {

struct Font {
  std::string name;  // the family
  double pointSize = 0;
  // The face within the family ("Bold"); absent for the family's regular face.
  std::optional<std::string> style{};
  friend bool operator==(const Font&, const Font&) = default;
};

// An installed face. `style` is absent when a host named the family alone.
struct FontFace {
  std::string family;
  std::optional<std::string> style{};
  friend bool operator==(const FontFace&, const FontFace&) = default;
};

class FontLookup {
 public:
  virtual ~FontLookup() = default;
  // The installed face that `name` names, compared byte for byte (no case
  // folding, no substitution), tried in this order: a family name
  // ("DejaVu Sans"), a PostScript name ("DejaVuSans-Bold"), a full name
  // ("DejaVu Sans Bold"). Absent when nothing installed has that name.
  // Safe from any thread.
  virtual std::optional<FontFace> face(std::string_view name) const = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
