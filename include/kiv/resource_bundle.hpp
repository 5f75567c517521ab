// A resource bundle: a directory of resource files, with an optional
// identifier. The SDK ships its own (the loading spinner); a host hands in
// its own for localised strings and for the image helpers.
//
//   auto bundle = ResourceBundle::make("/opt/app/resources", "com.example.app");
//   if (auto path = bundle->path("loading_spinner_1", "webp")) { ... }
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

class ResourceBundle;
using ResourceBundleRef = std::shared_ptr<const ResourceBundle>;

class ResourceBundle {
 public:
  static ResourceBundleRef make(std::filesystem::path directory, std::optional<std::string> identifier = std::nullopt);

  // The SDK's own resources, identified as kSdkIdentifier.
  static ResourceBundleRef sdk();
  static constexpr std::string_view kSdkIdentifier = "com.kiv.KivFaceLivenessLite";

  const std::filesystem::path& directory() const { return directory_; }
  const std::optional<std::string>& identifier() const { return identifier_; }

  // The file `name`.`extension` (just `name` when the extension is empty)
  // in the bundle's directory, when it exists as a regular file. Names may
  // hold subfolders ("frames/loading_1") but never leave the directory.
  std::optional<std::filesystem::path> path(std::string_view name, std::string_view extension) const;

  // The whole content of that file; absent when missing or unreadable.
  std::optional<std::vector<std::uint8_t>> data(std::string_view name, std::string_view extension) const;

 private:
  ResourceBundle(std::filesystem::path directory, std::optional<std::string> identifier)
      : directory_(std::move(directory)), identifier_(std::move(identifier)) {}
  std::filesystem::path directory_;
  std::optional<std::string> identifier_;
};

}  // namespace kiv

#pragma GCC visibility pop
