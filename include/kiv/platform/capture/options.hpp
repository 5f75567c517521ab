// The capture vendor's settings for one capture, under the vendor's own
// names. A new Options holds the vendor's defaults; whoever launches a
// capture changes only what it wants changed and hands the object to
// IProov::launch, which takes a copy.
//
//   Options options;
//   options.filter = Options::NaturalFilter{Options::NaturalFilter::Style::clean};
//   options.title = "Verify it's you";
//   options.presentationDelegate = presenter;   // held weakly
//
// Colours, images and bundles are shared objects: a copy of the options
// shares them.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "kiv/platform/capture/presentation_delegate.hpp"
#include "kiv/platform/ui/color.hpp"
#include "kiv/platform/ui/font.hpp"
#include "kiv/platform/ui/image.hpp"
#include "kiv/raw_value.hpp"
#include "kiv/resource_bundle.hpp"

namespace kiv {

class Options {
 public:
  // The camera picture shown as it is, in one of the vendor's looks.
  struct NaturalFilter {
    enum class Style { clean, sketch };
    Style style = Style::clean;
  };

  // The camera picture drawn as lines of one colour over another.
  struct LineDrawingFilter {
    enum class Style { classic, shaded, vibrant };
    Style style = Style::classic;
    ColorRef foregroundColor;
    ColorRef backgroundColor;
  };

  using Filter = std::variant<NaturalFilter, LineDrawingFilter>;

  // The vendor's defaults, listed beside each option.
  Options();

  // Name of the strings table the vendor's texts come from; absent: the
  // vendor's own texts.
  std::optional<std::string> stringsTable;
  // Where that table lives; null: the vendor's own bundle.
  ResourceBundleRef stringsBundle;
  // Default: a classic line drawing, dark grey on white.
  Filter filter;
  // Default false: the surround is blurred and dimmed.
  bool disableExteriorEffects = false;
  // Default: black at 40 %.
  ColorRef surroundColor;
  // Default absent: no title.
  std::optional<std::string> title;
  // Default: white.
  ColorRef titleTextColor;
  // Default: clear.
  ColorRef headerBackgroundColor;
  // Default null: the vendor's own close button.
  ImageRef closeButtonImage;
  // Default: white.
  ColorRef closeButtonTintColor;
  // Default null: no logo.
  ImageRef logoImage;
  // Default: white.
  ColorRef promptTextColor;
  // Default: black at 80 %.
  ColorRef promptBackgroundColor;
  // Default false: square corners.
  bool promptRoundedCorners = false;
  // Default absent: the system font.
  std::optional<Font> font;
  // Presents and dismisses the vendor's screen. Held weakly, as a phone
  // toolkit holds its delegates: its owner keeps it alive for the capture.
  std::weak_ptr<IProovPresentationDelegate> presentationDelegate;
};

template <>
struct RawValueTraits<Options::NaturalFilter::Style> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<Options::NaturalFilter::Style, std::string_view>, 2> table{{
      {Options::NaturalFilter::Style::clean, "clean"},
      {Options::NaturalFilter::Style::sketch, "sketch"},
  }};
};

template <>
struct RawValueTraits<Options::LineDrawingFilter::Style> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<Options::LineDrawingFilter::Style, std::string_view>, 3> table{{
      {Options::LineDrawingFilter::Style::classic, "classic"},
      {Options::LineDrawingFilter::Style::shaded, "shaded"},
      {Options::LineDrawingFilter::Style::vibrant, "vibrant"},
  }};
};

}  // namespace kiv

#pragma GCC visibility pop
