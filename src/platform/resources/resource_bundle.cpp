#include "kiv/resource_bundle.hpp"

#include <fstream>
#include <iterator>
#include <system_error>

#include "platform/resources/library_location.hpp"

namespace kiv {

ResourceBundleRef ResourceBundle::make(std::filesystem::path directory, std::optional<std::string> identifier) {
  return ResourceBundleRef(new ResourceBundle(std::move(directory), std::move(identifier)));
}

ResourceBundleRef ResourceBundle::sdk() {
  static const ResourceBundleRef bundle = make(
      resourceDirectory(sdkLibraryFile(), KIV_INSTALLED_RESOURCE_DIR, KIV_RESOURCE_DIR), std::string(kSdkIdentifier));
  return bundle;
}

std::optional<std::filesystem::path> ResourceBundle::path(std::string_view name, std::string_view extension) const {
  if (name.empty()) return std::nullopt;
  std::string file(name);
  if (!extension.empty()) {
    file += '.';
    file += extension;
  }
  const std::filesystem::path relative(file);
  if (relative.is_absolute()) return std::nullopt;
  for (const auto& part : relative) {
    if (part == "..") return std::nullopt;
  }
  auto full = directory_ / relative;
  std::error_code error;
  if (!std::filesystem::is_regular_file(full, error)) return std::nullopt;
  return full;
}

std::optional<std::vector<std::uint8_t>> ResourceBundle::data(std::string_view name, std::string_view extension) const {
  auto file = path(name, extension);
  if (!file) return std::nullopt;
  std::ifstream in(*file, std::ios::binary);
  if (!in) return std::nullopt;
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

}  // namespace kiv
