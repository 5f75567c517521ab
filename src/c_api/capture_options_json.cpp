#include "c_api/capture_options_json.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/json.hpp"
#include "base/overloaded.hpp"

namespace kiv::c_api {
namespace {

int channel(double component) { return static_cast<int>(std::lround(std::clamp(component, 0.0, 1.0) * 255.0)); }

bool sameColor(const ColorRef& a, const ColorRef& b) { return a == b || (a && b && *a == *b); }

bool isDefaultFilter(const Options::Filter& filter, const Options::Filter& fallback) {
  const auto* lines = std::get_if<Options::LineDrawingFilter>(&filter);
  const auto* defaults = std::get_if<Options::LineDrawingFilter>(&fallback);
  return lines && defaults && lines->style == defaults->style &&
         sameColor(lines->foregroundColor, defaults->foregroundColor) &&
         sameColor(lines->backgroundColor, defaults->backgroundColor);
}

// "#RRGGBBAA"; nothing for the vendor's default (or no colour).
void putColor(Json& object, const char* key, const ColorRef& color, const ColorRef& fallback = nullptr) {
  if (!color || sameColor(color, fallback)) return;
  char text[10];
  std::snprintf(text, sizeof text, "#%02X%02X%02X%02X", channel(color->red()), channel(color->green()),
                channel(color->blue()), channel(color->alpha()));
  object[key] = text;
}

}  // namespace

std::string captureOptionsJson(const Options& options) {
  const Options defaults;
  Json object = Json::object();
  if (options.stringsTable) object["stringsTable"] = *options.stringsTable;
  if (options.stringsBundle) object["stringsBundle"] = options.stringsBundle->directory().string();
  if (!isDefaultFilter(options.filter, defaults.filter)) {
    object["filter"] = std::visit(Overloaded{
                                      [](const Options::NaturalFilter& natural) {
                                        return Json{{"type", "natural"}, {"style", rawValue(natural.style)}};
                                      },
                                      [](const Options::LineDrawingFilter& lines) {
                                        Json filter{{"type", "lineDrawing"}, {"style", rawValue(lines.style)}};
                                        putColor(filter, "foregroundColor", lines.foregroundColor);
                                        putColor(filter, "backgroundColor", lines.backgroundColor);
                                        return filter;
                                      },
                                  },
                                  options.filter);
  }
  if (options.disableExteriorEffects != defaults.disableExteriorEffects) {
    object["disableExteriorEffects"] = options.disableExteriorEffects;
  }
  putColor(object, "surroundColor", options.surroundColor, defaults.surroundColor);
  if (options.title) object["title"] = *options.title;
  putColor(object, "titleTextColor", options.titleTextColor, defaults.titleTextColor);
  putColor(object, "headerBackgroundColor", options.headerBackgroundColor, defaults.headerBackgroundColor);
  putColor(object, "closeButtonTintColor", options.closeButtonTintColor, defaults.closeButtonTintColor);
  putColor(object, "promptTextColor", options.promptTextColor, defaults.promptTextColor);
  putColor(object, "promptBackgroundColor", options.promptBackgroundColor, defaults.promptBackgroundColor);
  if (options.promptRoundedCorners != defaults.promptRoundedCorners) {
    object["promptRoundedCorners"] = options.promptRoundedCorners;
  }
  if (options.font) object["font"] = Json{{"name", options.font->name}, {"pointSize", options.font->pointSize}};
  return json::dumpCompact(object);
}

}  // namespace kiv::c_api
