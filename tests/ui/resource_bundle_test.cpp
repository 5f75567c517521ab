#include "kiv/resource_bundle.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace kiv {
namespace {

class ResourceBundleTest : public ::testing::Test {
 protected:
  ResourceBundleTest() {
    std::filesystem::create_directories(dir_ / "frames");
    std::ofstream(dir_ / "frames" / "loading_1.png") << "one";
    std::ofstream(dir_ / "README") << "plain";
    std::ofstream(dir_.parent_path() / "outside.txt") << "secret";
  }
  ~ResourceBundleTest() override { std::filesystem::remove_all(dir_.parent_path()); }

  std::filesystem::path dir_ =
      std::filesystem::temp_directory_path() / ("kiv_bundle_" + std::to_string(::getpid())) / "bundle";
};

TEST_F(ResourceBundleTest, FindsFilesByNameAndExtensionInsideItsDirectoryOnly) {
  const auto bundle = ResourceBundle::make(dir_, "com.example.host");
  EXPECT_EQ(bundle->identifier(), "com.example.host");
  EXPECT_EQ(bundle->path("frames/loading_1", "png"), dir_ / "frames" / "loading_1.png");
  EXPECT_EQ(bundle->data("frames/loading_1", "png"), (std::vector<std::uint8_t>{'o', 'n', 'e'}));
  EXPECT_EQ(bundle->path("README", ""), dir_ / "README");

  EXPECT_EQ(bundle->path("frames/loading_2", "png"), std::nullopt);
  EXPECT_EQ(bundle->path("frames", ""), std::nullopt);  // a directory is no resource
  EXPECT_EQ(bundle->path("", "png"), std::nullopt);
  EXPECT_EQ(bundle->path("../outside", "txt"), std::nullopt);
  EXPECT_EQ(bundle->path((dir_.parent_path() / "outside").string(), "txt"), std::nullopt);
  EXPECT_EQ(bundle->data("missing", "png"), std::nullopt);
}

TEST(SdkResourceBundle, ShipsTheSpinnerUnderItsIdentifier) {
  EXPECT_EQ(ResourceBundle::sdk()->identifier(), "com.kiv.KivFaceLivenessLite");
  EXPECT_TRUE(ResourceBundle::sdk()->path("loading_spinner_1", "webp"));
  EXPECT_EQ(ResourceBundle::make("/nonexistent")->identifier(), std::nullopt);
}

}  // namespace
}  // namespace kiv
