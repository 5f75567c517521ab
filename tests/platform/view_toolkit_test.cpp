#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "platform/ui/fake_font_lookup.hpp"
#include "platform/ui/fontconfig_font_lookup.hpp"
#include "platform/ui/headless_view_toolkit.hpp"
#include "platform/view_toolkit_contract.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

using testing::ViewToolkitContract;

class ViewToolkitTest : public testing::PlatformTest {
 protected:
  ViewToolkit& ui() { return *platform()->ui; }
};

// --- Views: the contract every toolkit passes (view_toolkit_contract.cpp)

class HeadlessHarness final : public testing::ToolkitHarness {
 public:
  ViewToolkit& ui() override { return *platform()->ui; }

 private:
  testing::TestPlatform platform_;
};

INSTANTIATE_TEST_SUITE_P(Headless, ViewToolkitContract,
                         ::testing::Values(testing::ToolkitUnderTest{
                             "headless", [] { return std::make_unique<HeadlessHarness>(); }}));

// --- Presentation

// --- Fonts

// The faces of fonts-dejavu-core that the table below names, as fc-list
// reports them, for the fake.
std::vector<FakeFontLookup::Face> dejaVuFaces() {
  return {{"DejaVu Sans", "Book", "DejaVuSans", "DejaVu Sans"},
          {"DejaVu Sans", "Bold", "DejaVuSans-Bold", "DejaVu Sans Bold"},
          {"DejaVu Sans Condensed", "Bold", "DejaVuSansCondensed-Bold", "DejaVu Sans Condensed Bold"}};
}

struct FaceCase {
  const char* name;
  std::optional<FontFace> face;
};
void PrintTo(const FaceCase& c, std::ostream* os) { *os << '"' << c.name << '"'; }

class FontLookupTest : public ::testing::TestWithParam<FaceCase> {};

// What hosts pass: a family, a PostScript name, a full name; matched byte for
// byte, and answered alike by fontconfig and by the fake.
TEST_P(FontLookupTest, NamesAFaceByFamilyPostScriptOrFullName) {
  EXPECT_EQ(FontconfigFontLookup().face(GetParam().name), GetParam().face) << "fontconfig";
  EXPECT_EQ(FakeFontLookup(dejaVuFaces()).face(GetParam().name), GetParam().face) << "fake";
}

INSTANTIATE_TEST_SUITE_P(
    DejaVu, FontLookupTest,
    ::testing::Values(FaceCase{"DejaVu Sans", FontFace{"DejaVu Sans"}},  // a family first, though also a full name
                      FaceCase{"DejaVuSans-Bold", FontFace{"DejaVu Sans", "Bold"}},
                      FaceCase{"DejaVu Sans Bold", FontFace{"DejaVu Sans", "Bold"}},
                      FaceCase{"DejaVuSans", FontFace{"DejaVu Sans", "Book"}},
                      FaceCase{"dejavusans-bold", std::nullopt}, FaceCase{"DejaVu", std::nullopt},
                      FaceCase{"", std::nullopt}));

TEST_F(ViewToolkitTest, FontsKeepTheNamedFaceAtTheAskedSize) {
  EXPECT_EQ(ui().font("Avenir Next", ui().systemFontSize()), (Font{"Avenir Next", 14.0}));
  EXPECT_EQ(ui().font("Comic Sans", 14.0), std::nullopt);
  const HeadlessViewToolkit dejaVu(std::make_shared<FakeFontLookup>(dejaVuFaces()));
  EXPECT_EQ(dejaVu.font("DejaVuSans-Bold", 20.0), (Font{"DejaVu Sans", 20.0, "Bold"}));
}

// --- Images

TEST(ImageTest, IndexedImagesComposeFromTheirPaletteAndCountWhatTheyHold) {
  const auto palette = std::make_shared<const Palette>(Palette{0, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 128});
  const auto image = Image::indexed(3, 1, palette, std::vector<std::uint8_t>{2, 0, 1});
  ASSERT_TRUE(image && image->isIndexed());
  EXPECT_EQ(image->rgba(), (std::vector<std::uint8_t>{0, 0, 255, 128, 0, 0, 0, 0, 255, 0, 0, 255}));
  EXPECT_EQ(Image::animated({image, image}, 1.0)->byteCount(), 3 + 3 + 12u);  // the shared palette once

  EXPECT_FALSE(Image::indexed(3, 1, palette, std::vector<std::uint8_t>{0, 1, 3}));  // outside the palette
  EXPECT_FALSE(Image::indexed(2, 1, palette, std::vector<std::uint8_t>{0, 1, 1}));
  EXPECT_FALSE(Image::indexed(3, 1, nullptr, std::vector<std::uint8_t>{0, 0, 0}));
  EXPECT_FALSE(Image::animated({image, nullptr}, 1.0));
}

}  // namespace
}  // namespace kiv
