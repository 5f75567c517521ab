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

// The host's shared objects, named in the read-back only when the option
// holds that very object.
const ColorRef kRed = Color::rgba(1, 0, 0, 1), kGreen = Color::rgba(0, 1, 0, 1), kBlue = Color::rgba(0, 0, 1, 1),
               kInk = Color::rgba(0.1, 0.1, 0.1, 1), kPaper = Color::rgba(0.9, 0.9, 0.9, 0.5);
const ImageRef kCross = Image::still(1, 1, {0, 0, 0, 255}), kLogo = Image::still(1, 1, {9, 9, 9, 255});
const ResourceBundleRef kStrings = ResourceBundle::make("/opt/host/strings", "com.example.host");

template <typename Ref>
std::string text(const Ref& ref) {
  const std::map<const void*, std::string> named{
      {kRed.get(), "red"},     {kGreen.get(), "green"}, {kBlue.get(), "blue"}, {kInk.get(), "ink"},
      {kPaper.get(), "paper"}, {kCross.get(), "cross"}, {kLogo.get(), "logo"}, {kStrings.get(), "strings"}};
  if (!ref) return "none";
  if (auto it = named.find(ref.get()); it != named.end()) return it->second;
  std::ostringstream out;
  if constexpr (std::is_same_v<Ref, ColorRef>) {
    out.precision(5);
    out << "rgba(" << ref->red() << " " << ref->green() << " " << ref->blue() << " " << ref->alpha() << ")";
  } else {
    out << "another";
  }
  return out.str();
}

// Every option the builder may write, as text.
std::map<std::string, std::string> readBack(const Options& o,
                                            const std::shared_ptr<IProovPresentationDelegate>& presenter) {
  std::string filter;
  if (const auto* natural = std::get_if<Options::NaturalFilter>(&o.filter)) {
    filter = "natural " + std::string(rawValue(natural->style));
  } else {
    const auto& lines = std::get<Options::LineDrawingFilter>(o.filter);
    filter = "lines " + std::string(rawValue(lines.style)) + " " + text(lines.foregroundColor) + " on " +
             text(lines.backgroundColor);
  }
  const auto delegate = o.presentationDelegate.lock();
  return {{"stringsTable", o.stringsTable.value_or("none")},
          {"stringsBundle", text(o.stringsBundle)},
          {"filter", filter},
          {"disableExteriorEffects", o.disableExteriorEffects ? "true" : "false"},
          {"surroundColor", text(o.surroundColor)},
          {"title", o.title.value_or("none")},
          {"titleTextColor", text(o.titleTextColor)},
          {"headerBackgroundColor", text(o.headerBackgroundColor)},
          {"closeButtonImage", text(o.closeButtonImage)},
          {"closeButtonTintColor", text(o.closeButtonTintColor)},
          {"logoImage", text(o.logoImage)},
          {"promptTextColor", text(o.promptTextColor)},
          {"promptBackgroundColor", text(o.promptBackgroundColor)},
          {"promptRoundedCorners", o.promptRoundedCorners ? "true" : "false"},
          {"font", o.font ? o.font->name + " " + std::to_string(int(o.font->pointSize)) : "none"},
          {"presentationDelegate", !delegate               ? "none"
                                   : delegate == presenter ? "presenter"
                                                           : "another"}};
}

class NoPresentation final : public IProovPresentationDelegate {
  void present(std::shared_ptr<ViewController>, Task) override {}
  void dismiss(std::shared_ptr<ViewController>, Task) override {}
};

using Mask = DorvinMaskCustomization;
using Bar = DorvinAppBarCustomization;
using Prompt = DorvinPromptCustomization;
using Look = DorvinUiCustomization;

struct BuildCase {
  std::string name;
  std::optional<std::string> filter;
  std::optional<Look> look;
  std::map<std::string, std::string> changed;  // every option not listed keeps the vendor's default
  bool localized = false;                      // the host gave a strings table and bundle
};
class OptionsBuilderTest : public testing::PlatformTest {};

constexpr auto none = std::nullopt;
const std::string kLines = "lines shaded rgba(0.25098 0.25098 0.25098 1) on rgba(0.98039 0.98039 0.98039 1)";

const BuildCase kCases[] = {
    {"None", none, none, {}},
    {"NaturalInAnyCase", "NaTuRaL", none, {{"filter", "natural clean"}}},
    {"LineDrawingInUpperCase", "LINEDRAWING", none, {{"filter", kLines}}},
    {"Padded", " natural", none, {}},
    {"Localization", none, none, {{"stringsTable", "HostCapture"}, {"stringsBundle", "strings"}}, true},
    {"EveryRecordAbsent", none, Look{none, none, none, none}, {}},
    {"BlurOffWithoutColour", none, Look{Mask{false, nullptr}, none, none, none}, {{"disableExteriorEffects", "true"}}},
    {"BlurOnWithColour", none, Look{Mask{true, kRed}, none, none, none}, {{"surroundColor", "red"}}},
    {"FullAppBar",
     none,
     Look{none, Bar{"Verify", kRed, kGreen, kCross, kBlue, kLogo}, none, none},
     {{"title", "Verify"},
      {"titleTextColor", "red"},
      {"headerBackgroundColor", "green"},
      {"closeButtonImage", "cross"},
      {"closeButtonTintColor", "blue"},
      {"logoImage", "logo"}}},
    {"PromptOnlyRounded",
     none,
     Look{none, none, Prompt{nullptr, nullptr, true}, none},
     {{"promptRoundedCorners", "true"}}},
    {"PromptColours",
     none,
     Look{none, none, Prompt{kInk, kPaper, false}, none},
     {{"promptTextColor", "ink"}, {"promptBackgroundColor", "paper"}}},
    {"KnownFontAtTheSystemSize", none, Look{none, none, none, "Avenir Next"}, {{"font", "Avenir Next 14"}}},
    {"UnknownFontLeavesTheRest",
     "natural",
     Look{Mask{false, kBlue}, none, Prompt{nullptr, kPaper, true}, "Comic Sans"},
     {{"filter", "natural clean"},
      {"disableExteriorEffects", "true"},
      {"surroundColor", "blue"},
      {"promptBackgroundColor", "paper"},
      {"promptRoundedCorners", "true"}}}};

TEST_F(OptionsBuilderTest, WritesExactlyTheOptionsItsInputsName) {
  auto presenter = std::make_shared<NoPresentation>();
  for (const auto& input : kCases) {
    auto expected = readBack(Options{}, presenter);
    expected["presentationDelegate"] = "presenter";
    for (const auto& [option, value] : input.changed) {
      ASSERT_TRUE(expected.contains(option)) << option;
      expected[option] = value;
    }
    auto options = buildIProovOptions(input.localized ? std::optional<std::string>("HostCapture") : std::nullopt,
                                      input.localized ? kStrings : nullptr, input.filter, input.look, presenter);
    EXPECT_EQ(readBack(options, presenter), expected) << input.name;
  }
}

}  // namespace
}  // namespace kiv
