#include "c_api/c_ui_customization.hpp"

#include <cstdint>
#include <initializer_list>
#include <string>

#include "base/json.hpp"

namespace kiv::c_api {
namespace {

// Refused rather than ignored: a misspelt key would otherwise pass silently.
bool onlyKeys(const Json& object, std::initializer_list<std::string_view> keys) {
  for (const auto& [key, value] : object.items()) {
    bool known = false;
    for (auto allowed : keys) known = known || key == allowed;
    if (!known) return false;
  }
  return true;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "#RRGGBB" or "#RRGGBBAA".
std::optional<ColorRef> parseColor(const std::string& text) {
  if ((text.size() != 7 && text.size() != 9) || text[0] != '#') return std::nullopt;
  double components[4] = {0, 0, 0, 1};
  for (std::size_t i = 1, c = 0; i < text.size(); i += 2, ++c) {
    const int high = hexDigit(text[i]), low = hexDigit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    components[c] = (high * 16 + low) / 255.0;
  }
  return Color::rgba(components[0], components[1], components[2], components[3]);
}

// The colour at `key`: absent gives a null reference; false for a wrong one.
bool readColor(const Json& object, std::string_view key, ColorRef& out) {
  auto text = json::optionalString(object, key);
  if (!text) return false;
  if (!*text) return true;
  auto color = parseColor(**text);
  if (!color) return false;
  out = *color;
  return true;
}

bool readBool(const Json& object, std::string_view key, bool& out) {
  auto value = json::optionalBool(object, key);
  if (!value) return false;
  out = value->value_or(false);
  return true;
}

}  // namespace

std::optional<DorvinUiCustomization> parseUiCustomization(std::string_view text) {
  auto root = json::parse(text);
  if (!root || !root->is_object() || !onlyKeys(*root, {"mask", "appBar", "prompt", "fontName"})) return std::nullopt;
  DorvinUiCustomization look(std::nullopt, std::nullopt, std::nullopt, std::nullopt);

  auto mask = json::optionalObject(*root, "mask");
  if (!mask || (*mask && !onlyKeys(**mask, {"isBlurEnabled", "color"}))) {
    return std::nullopt;
  }
  if (*mask) {
    DorvinMaskCustomization record(false, nullptr);
    if (!readBool(**mask, "isBlurEnabled", record.isBlurEnabled) || !readColor(**mask, "color", record.color)) {
      return std::nullopt;
    }
    look.mask = record;
  }

  auto appBar = json::optionalObject(*root, "appBar");
  if (!appBar || (*appBar && !onlyKeys(**appBar, {"title", "titleColor", "color", "closeButtonTintColor"}))) {
    return std::nullopt;
  }
  if (*appBar) {
    DorvinAppBarCustomization record(std::nullopt, nullptr, nullptr, nullptr, nullptr, nullptr);
    auto title = json::optionalString(**appBar, "title");
    if (!title || !readColor(**appBar, "titleColor", record.titleColor) ||
        !readColor(**appBar, "color", record.color) ||
        !readColor(**appBar, "closeButtonTintColor", record.closeButtonTintColor)) {
      return std::nullopt;
    }
    record.title = *title;
    look.appBar = record;
  }

  auto prompt = json::optionalObject(*root, "prompt");
  if (!prompt || (*prompt && !onlyKeys(**prompt, {"textColor", "backgroundColor", "isRounded"}))) {
    return std::nullopt;
  }
  if (*prompt) {
    DorvinPromptCustomization record(nullptr, nullptr, false);
    if (!readColor(**prompt, "textColor", record.textColor) ||
        !readColor(**prompt, "backgroundColor", record.backgroundColor) ||
        !readBool(**prompt, "isRounded", record.isRounded)) {
      return std::nullopt;
    }
    look.prompt = record;
  }

  auto fontName = json::optionalString(*root, "fontName");
  if (!fontName) return std::nullopt;
  look.fontName = *fontName;
  return look;
}

}  // namespace kiv::c_api

namespace kiv {

std::optional<DorvinUiCustomization> uiCustomizationFromJson(std::string_view json) {
  return c_api::parseUiCustomization(json);
}

}  // namespace kiv
