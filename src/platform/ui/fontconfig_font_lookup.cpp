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

bool FontconfigFontLookup::hasFamily(std::string_view familyName) const {
  if (familyName.empty()) return false;
  const std::string family(familyName);
  std::lock_guard lock(mutex_);
  if (!loaded_) {
    loaded_ = true;
    config_ = FcInitLoadConfigAndFonts();
  }
  if (!config_) return false;
  // fontconfig compares family names ignoring case and blanks, and a font
  // may carry several family names: keep only a byte-exact one.
  std::unique_ptr<FcPattern, PatternDeleter> pattern(FcPatternCreate());
  std::unique_ptr<FcObjectSet, ObjectSetDeleter> objects(FcObjectSetBuild(FC_FAMILY, nullptr));
  if (!pattern || !objects) return false;
  FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
  std::unique_ptr<FcFontSet, FontSetDeleter> fonts(FcFontList(config_, pattern.get(), objects.get()));
  if (!fonts) return false;
  for (int i = 0; i < fonts->nfont; ++i) {
    FcChar8* name = nullptr;
    for (int id = 0; FcPatternGetString(fonts->fonts[i], FC_FAMILY, id, &name) == FcResultMatch; ++id) {
      if (family == reinterpret_cast<const char*>(name)) return true;
    }
  }
  return false;
}

}  // namespace kiv
