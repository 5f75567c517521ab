// Where the SDK's own files are at run time. An installed library finds its
// resources beside it (lib/libkivfll.so -> share/kivfll/resources), wherever
// the prefix was moved to; a library in the build tree has none beside it
// and uses the source tree's.
#pragma once

#include <filesystem>
#include <optional>

namespace kiv {

// The file of the loaded shared library (or executable) that holds this
// code, as the dynamic loader opened it; absent when the loader cannot say.
std::optional<std::filesystem::path> sdkLibraryFile();

// `relative`, taken from the directory of `libraryFile`, when that is an
// existing directory; `fallback` otherwise (no library file, or nothing
// installed beside it).
std::filesystem::path resourceDirectory(const std::optional<std::filesystem::path>& libraryFile,
                                        const std::filesystem::path& relative, const std::filesystem::path& fallback);

}  // namespace kiv
