// How a host restyles the capture screen. Plain data: nothing is validated
// here, and every field is public and mutable. Each record has one
// constructor taking every field in order, with no defaults. The records are
// values (a copy is independent), while the colours and images inside them
// are shared objects: copying a record shares them.
//
//   DorvinUiCustomization look{
//       DorvinMaskCustomization{false, Color::white(0.0, 0.6)},
//       DorvinAppBarCustomization{"Verify", Color::white(1, 1), nullptr, nullptr, nullptr, logo},
//       DorvinPromptCustomization{nullptr, nullptr, true},
//       "DejaVu Sans"};
//
// An absent colour or image is a null reference; an absent record or text is
// std::nullopt.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "kiv/platform/ui/color.hpp"
#include "kiv/platform/ui/image.hpp"

namespace kiv {

// The surround of the capture area.
struct DorvinMaskCustomization {
  DorvinMaskCustomization(bool isBlurEnabled_, ColorRef color_)
      : isBlurEnabled(isBlurEnabled_), color(std::move(color_)) {}

  bool isBlurEnabled;  // false switches the vendor's exterior effects off
  ColorRef color;      // surround colour
};

// The top bar of the capture screen.
struct DorvinAppBarCustomization {
  DorvinAppBarCustomization(std::optional<std::string> title_, ColorRef titleColor_, ColorRef color_,
                            ImageRef closeButton_, ColorRef closeButtonTintColor_, ImageRef logoIcon_)
      : title(std::move(title_)),
        titleColor(std::move(titleColor_)),
        color(std::move(color_)),
        closeButton(std::move(closeButton_)),
        closeButtonTintColor(std::move(closeButtonTintColor_)),
        logoIcon(std::move(logoIcon_)) {}

  std::optional<std::string> title;
  ColorRef titleColor;
  ColorRef color;  // bar background
  ImageRef closeButton;
  ColorRef closeButtonTintColor;
  ImageRef logoIcon;
};

// The instruction label.
struct DorvinPromptCustomization {
  DorvinPromptCustomization(ColorRef textColor_, ColorRef backgroundColor_, bool isRounded_)
      : textColor(std::move(textColor_)), backgroundColor(std::move(backgroundColor_)), isRounded(isRounded_) {}

  ColorRef textColor;
  ColorRef backgroundColor;
  bool isRounded;
};

struct DorvinUiCustomization {
  DorvinUiCustomization(std::optional<DorvinMaskCustomization> mask_, std::optional<DorvinAppBarCustomization> appBar_,
                        std::optional<DorvinPromptCustomization> prompt_, std::optional<std::string> fontName_)
      : mask(std::move(mask_)),
        appBar(std::move(appBar_)),
        prompt(std::move(prompt_)),
        fontName(std::move(fontName_)) {}

  std::optional<DorvinMaskCustomization> mask;
  std::optional<DorvinAppBarCustomization> appBar;
  std::optional<DorvinPromptCustomization> prompt;
  std::optional<std::string> fontName;  // a font family for the vendor's texts
};

// The customization written in the C interface's JSON form (see
// kiv_sdk_setup in face_liveness_lite.h), for hosts and tools that keep a
// look in a file; absent for JSON that breaks that form's rules.
std::optional<DorvinUiCustomization> uiCustomizationFromJson(std::string_view json);

}  // namespace kiv
