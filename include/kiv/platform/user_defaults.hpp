// User defaults: plain (unsealed) strings by key that outlive the process,
// such as the installation marker. Nothing secret goes here; secrets go to
// the SecureItemStore.
//
//   auto defaults = kiv::platform()->defaults;
//   if (!defaults->string("install_guid")) defaults->setString("install_guid", id);
//
// Implementations are safe to call from any thread. Writes that cannot be
// persisted are dropped silently, as a platform's defaults store does.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kiv {

class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The string stored under `key`, or absent.
  virtual std::optional<std::string> string(std::string_view key) = 0;
  // Stores `value` under `key`, replacing what was there.
  virtual void setString(std::string_view key, std::string_view value) = 0;
  // Removes `key`; harmless when absent.
  virtual void remove(std::string_view key) = 0;
};

// The Linux defaults: a table of the secure store's database (same location
// rules, see makeLinuxSecureStore), values stored as they are.
std::shared_ptr<UserDefaults> makeLinuxUserDefaults(std::optional<std::filesystem::path> directory = std::nullopt);

}  // namespace kiv

#pragma GCC visibility pop
