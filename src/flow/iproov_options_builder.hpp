// Fills the capture vendor's options for one attempt from the host's
// localization, the session's capture filter and the host's customization.
// Only the options named below are written; every other keeps the vendor's
// default.
//
//   Options options = buildIProovOptions(config.customLocalization, config.customLocalizationBundle,
//                                        filterText, config.uiCustomization, presenter);
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "kiv/platform/capture/options.hpp"
#include "kiv/resource_bundle.hpp"
#include "kiv/ui_customization.hpp"

namespace kiv {

// The line drawing's ink and paper: greys of 64 and 250 out of 255.
inline constexpr double kLineDrawingForegroundLevel = 64.0 / 255.0;
inline constexpr double kLineDrawingBackgroundLevel = 250.0 / 255.0;

// In this order:
// 1. stringsTable and stringsBundle from the host's localization, when given.
// 2. filter from `filter` (the session's supplier.settings.filter), compared
//    in lower case: "natural" or "linedrawing"; any other text sets none.
// 3. the customization's fields, each onto its vendor option, when given;
//    the font only when the toolkit has that family (at the system size).
// 4. presentationDelegate = `presenter`.
// Safe from any thread.
Options buildIProovOptions(const std::optional<std::string>& customLocalization,
                           const ResourceBundleRef& customLocalizationBundle, const std::optional<std::string>& filter,
                           const std::optional<DorvinUiCustomization>& uiCustomization,
                           const std::shared_ptr<IProovPresentationDelegate>& presenter);

}  // namespace kiv
