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
  // In the build tree the library is where the build put it, with no resources beside it.
  ASSERT_TRUE(sdkLibraryFile());
  EXPECT_EQ(sdkLibraryFile()->filename().string().rfind("libkivfll.so", 0), 0u);
  EXPECT_EQ(resourceDirectory(sdkLibraryFile(), relative, fallback), fallback);
}

// The check the installed-library test below runs in a child process whose
// loader was pointed at the installed copy; skipped in a plain run.
TEST(InstalledSdkBundle, FindsTheSpinnerBesideTheInstalledLibrary) {
  const char* prefix = std::getenv("KIV_TEST_INSTALL_PREFIX");
  if (prefix == nullptr) GTEST_SKIP() << "run by InstalledLibraryFindsItsResources";
  const auto root = std::filesystem::canonical(prefix);
  ASSERT_TRUE(sdkLibraryFile());
  EXPECT_EQ(sdkLibraryFile()->string().rfind(root.string() + "/", 0), 0u) << *sdkLibraryFile();
  EXPECT_EQ(std::filesystem::canonical(ResourceBundle::sdk()->directory()), root / "share" / "kivfll" / "resources");
  EXPECT_TRUE(ResourceBundle::sdk()->data("loading_spinner_1", "webp"));
}

// `cmake --install` into a fresh prefix, then this test program again with
// the loader taking the installed library instead of the build tree's.
TEST(SdkResourceBundle, InstalledLibraryFindsItsResources) {
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  const char* binaryDir = std::getenv("KIV_TEST_BINARY_DIR");  // set by CTest
  const auto build = binaryDir ? std::filesystem::path(binaryDir) : self.parent_path().parent_path();
  const testing::TemporaryDirectory prefix;
  const auto install = testing::runToEnd(
      "/usr/bin/env", {"cmake", "--install", build.string(), "--prefix", prefix.path().string()}, 120.0);
  ASSERT_EQ(install.exitCode, 0) << install.output << install.errors;
  ASSERT_TRUE(std::filesystem::exists(prefix.path() / "share/kivfll/resources/loading_spinner_1.webp"));

  std::filesystem::path libdir;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(prefix.path())) {
    if (entry.path().filename().string().rfind("libkivfll.so", 0) == 0) libdir = entry.path().parent_path();
  }
  ASSERT_FALSE(libdir.empty());
  std::vector<std::string> command = {"LD_LIBRARY_PATH=" + libdir.string(),
                                      "KIV_TEST_INSTALL_PREFIX=" + prefix.path().string()};
  std::ranges::copy(testing::commandLine(self.string(), {"--gtest_filter=InstalledSdkBundle.*", "--gtest_brief=1"}),
                    std::back_inserter(command));
  const auto run = testing::runToEnd("/usr/bin/env", command, 120.0);
  EXPECT_EQ(run.exitCode, 0) << run.output << run.errors;
  EXPECT_NE(run.output.find("[  PASSED  ] 1 test."), std::string::npos) << run.output;
  EXPECT_EQ(run.output.find("SKIPPED"), std::string::npos) << run.output;
}

}  // namespace
}  // namespace kiv
