#include "platform/ui/fontconfig_font_lookup.hpp"

#include <memory>
#include <string>

namespace kiv {
namespace {

struct PatternDeleter {
  void operator()(FcPattern* p) const { FcPatternDestroy(p); }
};
struct ObjectSetDeleter {
  void operator()(FcObjectSet* s) const { FcObjectSetDestroy(s); }
};
struct FontSetDeleter {
  void operator()(FcFontSet* s) const { FcFontSetDestroy(s); }
};

}  // namespace

FontconfigFontLookup::~FontconfigFontLookup() {
  if (config_) FcConfigDestroy(config_);
}

std::optional<FontFace> FontconfigFontLookup::face(std::string_view name) const {
  if (name.empty()) return std::nullopt;
  const std::string wanted(name);
  std::lock_guard lock(mutex_);
  if (!loaded_) {
    loaded_ = true;
    config_ = FcInitLoadConfigAndFonts();
  }
  if (!config_) return std::nullopt;
  // A name given alone stands for the family's regular face.
  if (auto family = findFace(FC_FAMILY, wanted)) return FontFace{std::move(family->family)};
  if (auto face = findFace(FC_POSTSCRIPT_NAME, wanted)) return face;
  return findFace(FC_FULLNAME, wanted);
}

// fontconfig compares names ignoring case and blanks, and a face may carry
// several names per property (one per language, or a typographic family
// beside the legacy one): ask it for candidates, then keep only a byte-exact
// name. A face's families and styles come in pairs ("DejaVu Sans" with
// "Condensed Bold", "DejaVu Sans Condensed" with "Bold"): a match on the
// second family keeps the second style.
std::optional<FontFace> FontconfigFontLookup::findFace(const char* property, const std::string& wanted) const {
  std::unique_ptr<FcPattern, PatternDeleter> pattern(FcPatternCreate());
  std::unique_ptr<FcObjectSet, ObjectSetDeleter> objects(FcObjectSetBuild(FC_FAMILY, FC_STYLE, property, nullptr));
  if (!pattern || !objects) return std::nullopt;
  FcPatternAddString(pattern.get(), property, reinterpret_cast<const FcChar8*>(wanted.c_str()));
  std::unique_ptr<FcFontSet, FontSetDeleter> fonts(FcFontList(config_, pattern.get(), objects.get()));
  if (!fonts) return std::nullopt;
  const auto text = [](FcPattern* font, const char* object, int id) -> std::optional<std::string> {
    FcChar8* value = nullptr;
    if (FcPatternGetString(font, object, id, &value) != FcResultMatch) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(value));
  };
  for (int i = 0; i < fonts->nfont; ++i) {
    FcPattern* font = fonts->fonts[i];
    for (int id = 0;; ++id) {
      const auto name = text(font, property, id);
      if (!name) break;
      if (*name != wanted) continue;
      const bool byFamily = std::string_view(property) == FC_FAMILY;
      const int pair = byFamily ? id : 0;
      auto family = byFamily ? name : text(font, FC_FAMILY, 0);
      if (!family) break;
      auto style = text(font, FC_STYLE, pair);
      if (!style) style = text(font, FC_STYLE, 0);
      return FontFace{std::move(*family), std::move(style)};
    }
  }
  return std::nullopt;
}

}  // namespace kiv
