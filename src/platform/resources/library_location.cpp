#include "platform/resources/library_location.hpp"

#include <dlfcn.h>

#include <system_error>

namespace kiv {

std::optional<std::filesystem::path> sdkLibraryFile() {
  Dl_info info{};
  // Any symbol of ours will do: dladdr names the object that contains it.
  if (dladdr(reinterpret_cast<const void*>(&sdkLibraryFile), &info) == 0 || info.dli_fname == nullptr ||
      info.dli_fname[0] == '\0') {
    return std::nullopt;
  }
  std::error_code error;
  auto file = std::filesystem::canonical(info.dli_fname, error);
  if (error) return std::filesystem::path(info.dli_fname);
  return file;
}

std::filesystem::path resourceDirectory(const std::optional<std::filesystem::path>& libraryFile,
                                        const std::filesystem::path& relative, const std::filesystem::path& fallback) {
  if (!libraryFile || !libraryFile->has_parent_path()) return fallback;
  const auto beside = (libraryFile->parent_path() / relative).lexically_normal();
  std::error_code error;
  return std::filesystem::is_directory(beside, error) ? beside : fallback;
}

}  // namespace kiv
