#include "kiv/resource_bundle.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <cstdlib>
#include <string>

#include "platform/resources/library_location.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"

namespace kiv {
namespace {

class ResourceBundleTest : public ::testing::Test {
 protected:
  ResourceBundleTest() {
    std::filesystem::create_directories(dir_ / "frames");
    std::ofstream(dir_ / "frames" / "loading_1.png") << "one";
    std::ofstream(dir_ / "README") << "plain";
    std::ofstream(scratch_.path() / "outside.txt") << "secret";
  }

  testing::TemporaryDirectory scratch_;
  std::filesystem::path dir_ = scratch_.path() / "bundle";
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
  EXPECT_EQ(ResourceBundle::make("/nonexistent")->identifier(), std::nullopt);
}

TEST(SdkResourceDirectory, IsBesideTheLibraryWhenInstalledElseTheBuildTreeOne) {
  const testing::TemporaryDirectory prefix;
  const auto lib = prefix.path() / "lib";
  const auto shared = prefix.path() / "share" / "kivfll" / "resources";
  std::filesystem::create_directories(lib);
  const std::filesystem::path relative = "../share/kivfll/resources", fallback = "/src/resources";
  EXPECT_EQ(resourceDirectory(lib / "libkivfll.so.3", relative, fallback), fallback);  // nothing installed yet
  std::filesystem::create_directories(shared);
  EXPECT_EQ(resourceDirectory(lib / "libkivfll.so.3", relative, fallback), shared);
  EXPECT_EQ(resourceDirectory(std::nullopt, relative, fallback), fallback);
  EXPECT_EQ(resourceDirectory(std::filesystem::path("libkivfll.so"), relative, fallback), fallback);
}

// A host of the shipped library finds the spinner in the source tree's
// resources from the build tree, and beside the library once installed
// (`cmake --install` into a fresh prefix, the loader pointed at the copy).
TEST(SdkResourceBundle, ShippedLibraryFindsItsResourcesBuiltAndInstalled) {
  const auto host = testing::programPath("sdk_resources");
  const auto built = testing::runToEnd(host, {}, 60.0);
  ASSERT_EQ(built.exitCode, 0) << built.errors;
  EXPECT_EQ(built.output, std::string(KIV_RESOURCE_DIR) + "\nyes\n");

  const char* binaryDir = std::getenv("KIV_TEST_BINARY_DIR");  // set by CTest
  const auto build = binaryDir ? std::filesystem::path(binaryDir) : std::filesystem::path(host).parent_path() / "../..";
  const testing::TemporaryDirectory prefix;
  const auto install = testing::runToEnd(
      "/usr/bin/env", {"cmake", "--install", build.string(), "--prefix", prefix.path().string()}, 120.0);
  ASSERT_EQ(install.exitCode, 0) << install.output << install.errors;
  std::filesystem::path libdir;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(prefix.path())) {
    if (entry.path().filename().string().rfind("libkivfll.so", 0) == 0) libdir = entry.path().parent_path();
  }
  ASSERT_FALSE(libdir.empty());
  // The loader is pointed at the installed copy; in a cross build the host
  // still goes behind the emulator.
  std::vector<std::string> command = {"LD_LIBRARY_PATH=" + libdir.string()};
  std::ranges::copy(testing::commandLine(host, {}), std::back_inserter(command));
  const auto installed = testing::runToEnd("/usr/bin/env", command, 60.0);
  ASSERT_EQ(installed.exitCode, 0) << installed.errors;
  const auto root = std::filesystem::canonical(prefix.path());
  EXPECT_EQ(installed.output, (root / "share" / "kivfll" / "resources").string() + "\nyes\n");
}

}  // namespace
}  // namespace kiv
