#include "flow/iproov_options_builder.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "support/test_platform.hpp"

namespace kiv {
namespace {

// The host's shared objects: an option holds the very object it was given.
const ColorRef kRed = Color::rgba(1, 0, 0, 1), kGreen = Color::rgba(0, 1, 0, 1), kBlue = Color::rgba(0, 0, 1, 1),
               kInk = Color::rgba(0.1, 0.1, 0.1, 1), kPaper = Color::rgba(0.9, 0.9, 0.9, 0.5);
const ImageRef kCross = Image::still(1, 1, {0, 0, 0, 255}), kLogo = Image::still(1, 1, {9, 9, 9, 255});

class NoPresentation final : public IProovPresentationDelegate {
  void present(std::shared_ptr<ViewController>, Task) override {}
  void dismiss(std::shared_ptr<ViewController>, Task) override {}
};

class OptionsBuilderTest : public testing::PlatformTest {
 protected:
  Options build(std::optional<std::string> filter, std::optional<DorvinUiCustomization> look = std::nullopt) {
    return buildIProovOptions(std::nullopt, nullptr, std::move(filter), std::move(look), presenter);
  }
  std::shared_ptr<NoPresentation> presenter = std::make_shared<NoPresentation>();
  const Options defaults;
};

// The filter's name in any case; anything else keeps the vendor's filter.
TEST_F(OptionsBuilderTest, FilterNamesAreReadInAnyCase) {
  const Options naturalOptions = build("NaTuRaL"), lineOptions = build("LINEDRAWING");
  const auto natural = std::get_if<Options::NaturalFilter>(&naturalOptions.filter);
  ASSERT_TRUE(natural);
  EXPECT_EQ(natural->style, Options::NaturalFilter::Style::clean);
  const auto lines = std::get_if<Options::LineDrawingFilter>(&lineOptions.filter);
  ASSERT_TRUE(lines);
  EXPECT_EQ(lines->style, Options::LineDrawingFilter::Style::shaded);
  EXPECT_EQ(std::pair(lines->foregroundColor->red(), lines->backgroundColor->red()),
            std::pair(kLineDrawingForegroundLevel, kLineDrawingBackgroundLevel));
  for (const auto& other : {std::optional<std::string>(" natural"), std::optional<std::string>()}) {
    EXPECT_EQ(build(other).filter.index(), defaults.filter.index());
  }
}

TEST_F(OptionsBuilderTest, EachCustomizationGoesToItsOptionAndAbsentPartsKeepTheDefaults) {
  const ResourceBundleRef strings = ResourceBundle::make("/opt/host/strings", "com.example.host");
  auto options =
      buildIProovOptions("HostCapture", strings, std::nullopt,
                         DorvinUiCustomization{DorvinMaskCustomization{false, kRed},
                                               DorvinAppBarCustomization{"Verify", kRed, kGreen, kCross, kBlue, kLogo},
                                               DorvinPromptCustomization{kInk, kPaper, true}, "Avenir Next"},
                         presenter);
  EXPECT_EQ(std::pair(options.stringsTable, options.stringsBundle),
            std::pair(std::optional<std::string>("HostCapture"), strings));
  EXPECT_TRUE(options.disableExteriorEffects);
  EXPECT_EQ(options.title, "Verify");
  for (const auto& [given, expected] :
       std::vector<std::pair<ColorRef, ColorRef>>{{options.surroundColor, kRed},
                                                  {options.titleTextColor, kRed},
                                                  {options.headerBackgroundColor, kGreen},
                                                  {options.closeButtonTintColor, kBlue},
                                                  {options.promptTextColor, kInk},
                                                  {options.promptBackgroundColor, kPaper}}) {
    EXPECT_EQ(given, expected);
  }
  EXPECT_EQ(std::pair(options.closeButtonImage, options.logoImage), std::pair(kCross, kLogo));
  EXPECT_TRUE(options.promptRoundedCorners);
  EXPECT_EQ(options.font, (Font{"Avenir Next", 14.0}));  // at the system size
  EXPECT_EQ(options.presentationDelegate.lock(), presenter);

  // Records without colours, and a font the system lacks, change nothing else.
  options =
      build(std::nullopt, DorvinUiCustomization{DorvinMaskCustomization{true, nullptr}, std::nullopt,
                                                DorvinPromptCustomization{nullptr, nullptr, false}, "Comic Sans"});
  EXPECT_FALSE(options.disableExteriorEffects);
  for (const auto& [kept, vendors] :
       std::vector<std::pair<ColorRef, ColorRef>>{{options.surroundColor, defaults.surroundColor},
                                                  {options.promptTextColor, defaults.promptTextColor},
                                                  {options.promptBackgroundColor, defaults.promptBackgroundColor}}) {
    EXPECT_EQ(*kept, *vendors);
  }
  EXPECT_EQ(std::tuple(options.title, options.font, options.stringsTable),
            std::tuple(defaults.title, defaults.font, defaults.stringsTable));
}

}  // namespace
}  // namespace kiv
