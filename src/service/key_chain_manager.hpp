// Byte strings kept across launches in the secure item store, by service and
// key. The telemetry parts hold the protocol; everyone else uses
// KivKeyChainManager::shared().
//
//   auto keychain = KivKeyChainManager::shared();
//   keychain->save(kKivSDKService, kMobileTokenKey, asBytes(token), /*update=*/true);   // may throw KeychainError
//   std::optional<std::string> token = keychain->readString(kKivSDKService, kMobileTokenKey);
//
// Byte strings are kiv::Bytes (std::vector<std::uint8_t>) rather than
// std::string: stored bytes are not promised to be text, and readString is
// the one place where they become text (with bad sequences replaced).
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kiv/platform/secure_store.hpp"

namespace kiv {

// The SDK's own items.
inline constexpr std::string_view kKivSDKService = "kiv.sdk.service";
inline constexpr std::string_view kMobileTokenKey = "fllitemobileToken";
inline constexpr std::string_view kPersonIdKey = "fllitepersonId";

// What a failed save throws.
class KeychainError : public std::exception {
 public:
  enum class Kind {
    unknown,         // the store failed the add or update with status()
    duplicateEntry,  // the item exists and the caller did not ask for an update
  };

  static KeychainError unknown(std::int32_t status);
  static KeychainError duplicateEntry();

  Kind kind() const noexcept { return kind_; }
  // The store's status code for unknown; duplicateItem for duplicateEntry.
  std::int32_t status() const noexcept { return status_; }
  // "KeychainError.unknown(-25300)" or "KeychainError.duplicateEntry".
  const char* what() const noexcept override { return description_.c_str(); }

  friend bool operator==(const KeychainError& a, const KeychainError& b) {
    return a.kind_ == b.kind_ && a.status_ == b.status_;
  }

 private:
  KeychainError(Kind kind, std::int32_t status);
  Kind kind_;
  std::int32_t status_;
  std::string description_;
};

class KeyChainManagerProtocol {
 public:
  virtual ~KeyChainManagerProtocol() = default;

  // Stores `data` as the item (service, key). An existing item gets the new
  // bytes when `update` is true; otherwise the save throws duplicateEntry
  // and the item keeps its bytes. Any other failure throws unknown(status).
  virtual void save(std::string_view service, std::string_view key, std::span<const std::uint8_t> data,
                    bool update) = 0;

  // The item's bytes, or absent (missing, unreadable). Never throws.
  virtual std::optional<Bytes> readData(std::string_view service, std::string_view key) = 0;

  // The item's bytes as UTF-8 text, ill-formed sequences replaced by U+FFFD;
  // absent as for readData. Never throws.
  virtual std::optional<std::string> readString(std::string_view service, std::string_view key) = 0;

  // Removes the item `key` under every service. Silent, whatever happens.
  // (The system calls this operation `delete`, a reserved word here.)
  virtual void deleteItem(std::string_view key) = 0;

  // Runs `operations` (calls of this manager, on this thread) with their
  // writes committed together, as SecureItemStore::writeTogether says.
  // False when they could not be committed.
  virtual bool writeTogether(const std::function<void()>& operations,
                             CommitDurability durability = CommitDurability::synced) {
    (void)durability;
    operations();
    return true;
  }
};

// The protocol over the installed platform's secure item store. Stateless:
// each call goes straight to the store, which is safe from any thread. A
// caller that reads, changes and writes back an item serialises that itself.
class KivKeyChainManager final : public KeyChainManagerProtocol {
 public:
  // The process-wide instance, created on first use. Held as a shared_ptr so
  // that telemetry can refer to it weakly.
  static std::shared_ptr<KivKeyChainManager> shared();

  void save(std::string_view service, std::string_view key, std::span<const std::uint8_t> data, bool update) override;
  std::optional<Bytes> readData(std::string_view service, std::string_view key) override;
  std::optional<std::string> readString(std::string_view service, std::string_view key) override;
  void deleteItem(std::string_view key) override;
  bool writeTogether(const std::function<void()>& operations, CommitDurability durability) override;
};

}  // namespace kiv
