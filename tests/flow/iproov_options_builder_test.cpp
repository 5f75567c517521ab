#include "flow/iproov_options_builder.hpp"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "support/test_platform.hpp"

namespace kiv {
namespace {

// The host's shared objects, recognisable by identity in the read-back.
const ColorRef kRed = Color::rgba(1, 0, 0, 1);
const ColorRef kGreen = Color::rgba(0, 1, 0, 1);
const ColorRef kBlue = Color::rgba(0, 0, 1, 1);
const ColorRef kInk = Color::rgba(0.1, 0.1, 0.1, 1);
const ColorRef kPaper = Color::rgba(0.9, 0.9, 0.9, 0.5);
const ColorRef kGold = Color::rgba(1, 0.8, 0, 1);
const ImageRef kCross = Image::still(1, 1, {0, 0, 0, 255});
const ImageRef kLogo = Image::still(2, 1, {0, 0, 0, 255, 255, 255, 255, 255});
const ResourceBundleRef kStrings = ResourceBundle::make("/opt/host/strings", "com.example.host");

std::string text(const ColorRef& color) {
  const std::map<const Color*, std::string> named{{kRed.get(), "red"}, {kGreen.get(), "green"}, {kBlue.get(), "blue"},
                                                  {kInk.get(), "ink"}, {kPaper.get(), "paper"}, {kGold.get(), "gold"}};
  if (!color) return "none";
  if (auto it = named.find(color.get()); it != named.end()) return it->second;
  std::ostringstream out;
  out.precision(5);
  out << "rgba(" << color->red() << " " << color->green() << " " << color->blue() << " " << color->alpha() << ")";
  return out.str();
}

std::string text(const ImageRef& image) {
  if (!image) return "none";
  if (image == kCross) return "cross";
  if (image == kLogo) return "logo";
  return "another image";
}

// Every option the builder may write, as text.
std::map<std::string, std::string> readBack(const Options& options,
                                            const std::shared_ptr<IProovPresentationDelegate>& presenter) {
  std::string filter;
  if (const auto* natural = std::get_if<Options::NaturalFilter>(&options.filter)) {
    filter = "natural " + std::string(rawValue(natural->style));
  } else {
    const auto& lines = std::get<Options::LineDrawingFilter>(options.filter);
    filter = "lineDrawing " + std::string(rawValue(lines.style)) + " " + text(lines.foregroundColor) + " on " +
             text(lines.backgroundColor);
  }
  const auto delegate = options.presentationDelegate.lock();
  return {
      {"stringsTable", options.stringsTable.value_or("none")},
      {"stringsBundle", options.stringsBundle == kStrings ? "host strings"
                        : options.stringsBundle           ? "other"
                                                          : "none"},
      {"filter", filter},
      {"disableExteriorEffects", options.disableExteriorEffects ? "true" : "false"},
      {"surroundColor", text(options.surroundColor)},
      {"title", options.title.value_or("none")},
      {"titleTextColor", text(options.titleTextColor)},
      {"headerBackgroundColor", text(options.headerBackgroundColor)},
      {"closeButtonImage", text(options.closeButtonImage)},
      {"closeButtonTintColor", text(options.closeButtonTintColor)},
      {"logoImage", text(options.logoImage)},
      {"promptTextColor", text(options.promptTextColor)},
      {"promptBackgroundColor", text(options.promptBackgroundColor)},
      {"promptRoundedCorners", options.promptRoundedCorners ? "true" : "false"},
      {"font", options.font ? options.font->name + " " + std::to_string(options.font->pointSize) : "none"},
      {"presentationDelegate", !delegate               ? "none"
                               : delegate == presenter ? "presenter"
                                                       : "other"},
  };
}

class NoPresentation final : public IProovPresentationDelegate {
 public:
  void present(std::shared_ptr<ViewController>, Task) override {}
  void dismiss(std::shared_ptr<ViewController>, Task) override {}
};

struct BuildCase {
  std::string name;
  std::optional<std::string> filter;
  std::optional<DorvinUiCustomization> look;
  std::map<std::string, std::string> changed;  // every option not listed keeps the vendor's default
  std::optional<std::string> localization = std::nullopt;
  ResourceBundleRef bundle = nullptr;
};
void PrintTo(const BuildCase& c, std::ostream* os) { *os << c.name; }

class OptionsBuilderTest : public testing::PlatformTest, public ::testing::WithParamInterface<BuildCase> {};

TEST_P(OptionsBuilderTest, WritesExactlyTheOptionsItsInputsName) {
  const auto& input = GetParam();
  auto presenter = std::make_shared<NoPresentation>();
  auto expected = readBack(Options{}, presenter);
  expected["presentationDelegate"] = "presenter";
  for (const auto& [option, value] : input.changed) {
    ASSERT_TRUE(expected.contains(option)) << option;
    expected[option] = value;
  }
  auto options = buildIProovOptions(input.localization, input.bundle, input.filter, input.look, presenter);
  EXPECT_EQ(readBack(options, presenter), expected);
}

const std::string kLineDrawing =
    "lineDrawing shaded rgba(0.25098 0.25098 0.25098 1) on rgba(0.98039 0.98039 0.98039 1)";

using Mask = DorvinMaskCustomization;
using AppBar = DorvinAppBarCustomization;
using Prompt = DorvinPromptCustomization;
using Look = DorvinUiCustomization;

INSTANTIATE_TEST_SUITE_P(
    Filters, OptionsBuilderTest,
    ::testing::Values(BuildCase{"NoFilter", std::nullopt, std::nullopt, {}},
                      BuildCase{"Natural", "natural", std::nullopt, {{"filter", "natural clean"}}},
                      BuildCase{"NaturalInMixedCase", "NaTuRaL", std::nullopt, {{"filter", "natural clean"}}},
                      BuildCase{"LineDrawing", "linedrawing", std::nullopt, {{"filter", kLineDrawing}}},
                      BuildCase{"LineDrawingInUpperCase", "LINEDRAWING", std::nullopt, {{"filter", kLineDrawing}}},
                      BuildCase{"AnotherWord", "blur", std::nullopt, {}},
                      BuildCase{"TwoWords", "line drawing", std::nullopt, {}},
                      BuildCase{"Padded", " natural", std::nullopt, {}}, BuildCase{"Empty", "", std::nullopt, {}}),
    [](const auto& testInfo) { return testInfo.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Localization, OptionsBuilderTest,
    ::testing::Values(
        BuildCase{"TableAndBundle",
                  std::nullopt,
                  std::nullopt,
                  {{"stringsTable", "HostCapture"}, {"stringsBundle", "host strings"}},
                  "HostCapture",
                  kStrings},
        BuildCase{"TableOnly", std::nullopt, std::nullopt, {{"stringsTable", "HostCapture"}}, "HostCapture"},
        BuildCase{
            "BundleOnly", std::nullopt, std::nullopt, {{"stringsBundle", "host strings"}}, std::nullopt, kStrings}),
    [](const auto& testInfo) { return testInfo.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Customizations, OptionsBuilderTest,
    ::testing::Values(
        BuildCase{"EveryRecordAbsent", std::nullopt, Look{std::nullopt, std::nullopt, std::nullopt, std::nullopt}, {}},
        BuildCase{"BlurOffWithoutColour",
                  std::nullopt,
                  Look{Mask{false, nullptr}, std::nullopt, std::nullopt, std::nullopt},
                  {{"disableExteriorEffects", "true"}}},
        BuildCase{"BlurOnWithColour",
                  std::nullopt,
                  Look{Mask{true, kRed}, std::nullopt, std::nullopt, std::nullopt},
                  {{"disableExteriorEffects", "false"}, {"surroundColor", "red"}}},
        BuildCase{"FullAppBar",
                  std::nullopt,
                  Look{std::nullopt, AppBar{"Verify", kRed, kGreen, kCross, kBlue, kLogo}, std::nullopt, std::nullopt},
                  {{"title", "Verify"},
                   {"titleTextColor", "red"},
                   {"headerBackgroundColor", "green"},
                   {"closeButtonImage", "cross"},
                   {"closeButtonTintColor", "blue"},
                   {"logoImage", "logo"}}},
        BuildCase{"AppBarWithEveryFieldAbsent",
                  std::nullopt,
                  Look{std::nullopt, AppBar{std::nullopt, nullptr, nullptr, nullptr, nullptr, nullptr}, std::nullopt,
                       std::nullopt},
                  {}},
        BuildCase{"AppBarLogoOnly",
                  std::nullopt,
                  Look{std::nullopt, AppBar{std::nullopt, nullptr, nullptr, nullptr, nullptr, kLogo}, std::nullopt,
                       std::nullopt},
                  {{"logoImage", "logo"}}},
        BuildCase{
            "EmptyTitleIsStillATitle",
            std::nullopt,
            Look{std::nullopt, AppBar{"", nullptr, nullptr, nullptr, nullptr, nullptr}, std::nullopt, std::nullopt},
            {{"title", ""}}},
        BuildCase{"PromptOnlyRounded",
                  std::nullopt,
                  Look{std::nullopt, std::nullopt, Prompt{nullptr, nullptr, true}, std::nullopt},
                  {{"promptRoundedCorners", "true"}}},
        BuildCase{"PromptColoursSquare",
                  std::nullopt,
                  Look{std::nullopt, std::nullopt, Prompt{kInk, kPaper, false}, std::nullopt},
                  {{"promptTextColor", "ink"}, {"promptBackgroundColor", "paper"}, {"promptRoundedCorners", "false"}}},
        BuildCase{"KnownFontAtTheSystemSize",
                  std::nullopt,
                  Look{std::nullopt, std::nullopt, std::nullopt, "Avenir Next"},
                  {{"font", "Avenir Next 14.000000"}}},
        BuildCase{"FontNamesAreExact", std::nullopt, Look{std::nullopt, std::nullopt, std::nullopt, "avenir next"}, {}},
        BuildCase{"UnknownFontLeavesTheRest",
                  "natural",
                  Look{Mask{false, kGold}, std::nullopt, Prompt{nullptr, kPaper, true}, "Comic Sans"},
                  {{"filter", "natural clean"},
                   {"disableExteriorEffects", "true"},
                   {"surroundColor", "gold"},
                   {"promptBackgroundColor", "paper"},
                   {"promptRoundedCorners", "true"}}},
        BuildCase{"Everything",
                  "linedrawing",
                  Look{Mask{false, kGold}, AppBar{"Hello", kRed, kGreen, kCross, kBlue, kLogo},
                       Prompt{kInk, kPaper, true}, "Avenir Next"},
                  {{"stringsTable", "HostCapture"},
                   {"stringsBundle", "host strings"},
                   {"filter", kLineDrawing},
                   {"disableExteriorEffects", "true"},
                   {"surroundColor", "gold"},
                   {"title", "Hello"},
                   {"titleTextColor", "red"},
                   {"headerBackgroundColor", "green"},
                   {"closeButtonImage", "cross"},
                   {"closeButtonTintColor", "blue"},
                   {"logoImage", "logo"},
                   {"promptTextColor", "ink"},
                   {"promptBackgroundColor", "paper"},
                   {"promptRoundedCorners", "true"},
                   {"font", "Avenir Next 14.000000"}},
                  "HostCapture",
                  kStrings}),
    [](const auto& testInfo) { return testInfo.param.name; });

}  // namespace
}  // namespace kiv
