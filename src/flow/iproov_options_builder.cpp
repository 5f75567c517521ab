#include "flow/iproov_options_builder.hpp"
#include "base/text.hpp"

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"

namespace kiv {
namespace {

constexpr std::string_view kNaturalFilter = "natural";
constexpr std::string_view kLineDrawingFilter = "linedrawing";

void applyFilter(Options& options, std::string_view filter) {
  // The vendor's style enumerations are fixed by position: the first
  // natural style, the second line-drawing style.
  const auto name = asciiLowercased(filter);
  if (name == kNaturalFilter) {
    options.filter = Options::NaturalFilter{allCases<Options::NaturalFilter::Style>()[0]};
  } else if (name == kLineDrawingFilter) {
    options.filter = Options::LineDrawingFilter{allCases<Options::LineDrawingFilter::Style>()[1],
                                                Color::white(kLineDrawingForegroundLevel, 1.0),
                                                Color::white(kLineDrawingBackgroundLevel, 1.0)};
  }
}

// A colour or image the host left out keeps the vendor's default.
template <typename Ref>
void setIfPresent(Ref& option, const Ref& value) {
  if (value) option = value;
}

void applyCustomization(Options& options, const DorvinUiCustomization& look) {
  if (const auto& mask = look.mask) {
    options.disableExteriorEffects = !mask->isBlurEnabled;
    setIfPresent(options.surroundColor, mask->color);
  }
  if (const auto& bar = look.appBar) {
    if (bar->title) options.title = bar->title;
    setIfPresent(options.titleTextColor, bar->titleColor);
    setIfPresent(options.headerBackgroundColor, bar->color);
    setIfPresent(options.closeButtonImage, bar->closeButton);
    setIfPresent(options.closeButtonTintColor, bar->closeButtonTintColor);
    setIfPresent(options.logoImage, bar->logoIcon);
  }
  if (const auto& prompt = look.prompt) {
    setIfPresent(options.promptTextColor, prompt->textColor);
    setIfPresent(options.promptBackgroundColor, prompt->backgroundColor);
    options.promptRoundedCorners = prompt->isRounded;
  }
  if (look.fontName) {
    // A family the system lacks is left out quietly: the vendor's own font
    // is a better fallback than a substitute.
    if (const auto ui = platform()->ui) {
      if (auto font = ui->font(*look.fontName, ui->systemFontSize())) options.font = std::move(font);
    }
  }
}

}  // namespace

Options buildIProovOptions(const std::optional<std::string>& customLocalization,
                           const ResourceBundleRef& customLocalizationBundle, const std::optional<std::string>& filter,
                           const std::optional<DorvinUiCustomization>& uiCustomization,
                           const std::shared_ptr<IProovPresentationDelegate>& presenter) {
  Options options;
  if (customLocalization) options.stringsTable = customLocalization;
  if (customLocalizationBundle) options.stringsBundle = customLocalizationBundle;
  if (filter) applyFilter(options, *filter);
  if (uiCustomization) applyCustomization(options, *uiCustomization);
  options.presentationDelegate = presenter;
  return options;
}

}  // namespace kiv
