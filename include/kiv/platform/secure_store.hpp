// The secure item store: small byte strings that outlive the process, kept
// on this device only.
//
// Every item is a generic-password item addressed by a service name and an
// account. Items are readable only while the device is unlocked, belong to
// this device and are never synchronised or migrated to another one: a host
// that bridges a phone's keychain writes them with those attributes.
//
// The four operations are the store's primitives and answer with the store's
// own 32-bit status codes (SecureStoreStatus), so that the wrapper above them
// (KivKeyChainManager) decides what a duplicate or a failure means.
//
//   auto store = kiv::platform()->secureStore;
//   if (store->add("svc", "acct", kiv::asBytes("v")) == kiv::SecureStoreStatus::duplicateItem) ...
//
// Implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace kiv {

// A byte string as the store holds it. Kept apart from std::string on
// purpose: stored bytes are not promised to be UTF-8, and turning them into
// text is a decoding step of its own.
using Bytes = std::vector<std::uint8_t>;

inline std::span<const std::uint8_t> asBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The store's status codes (the values a phone's keychain uses, so that
// codes reported in telemetry mean the same on every platform).
struct SecureStoreStatus {
  static constexpr std::int32_t success = 0;
  static constexpr std::int32_t duplicateItem = -25299;
  static constexpr std::int32_t itemNotFound = -25300;
  // The store cannot be reached at all (its directory or database cannot be
  // opened, its key is unreadable).
  static constexpr std::int32_t notAvailable = -25291;
  // The store was reached but failed to read or write.
  static constexpr std::int32_t ioError = -36;
};

// How far the writes of writeTogether() have gone when it returns.
enum class CommitDurability {
  // On the disk: they survive a crash of the process and a power cut.
  synced,
  // Handed to the operating system: they survive a crash of the process but
  // may be lost to a power cut. A full disk or a failed write still fails
  // the commit. For items that live no longer than a run anyway.
  written,
};

// What a read gives: a status and, on success, the item's bytes.
struct SecureItemCopy {
  std::int32_t status = SecureStoreStatus::itemNotFound;
  std::optional<Bytes> data;
};

class SecureItemStore {
 public:
  virtual ~SecureItemStore() = default;

  // Adds a new item. duplicateItem (and no change) when an item with this
  // service and account exists.
  virtual std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) = 0;

  // Replaces the bytes of the existing item with this service and account;
  // itemNotFound when there is none.
  virtual std::int32_t update(std::string_view service, std::string_view account,
                              std::span<const std::uint8_t> value) = 0;

  // Copies the bytes of the one item with this service and account.
  // itemNotFound and no data when there is none, or when its stored value
  // cannot be opened (damaged, moved, sealed under another key): such an item
  // is as good as absent, like a locked one.
  virtual SecureItemCopy copyMatching(std::string_view service, std::string_view account) = 0;

  // Deletes every item whose account is `account`, whatever its service.
  // itemNotFound when there was none.
  virtual std::int32_t deleteAccount(std::string_view account) = 0;

  // Runs `operations` (calls of this store's own operations, on this thread)
  // so that their writes are committed together, as far as `durability`
  // says: one commit instead of one each. Other callers wait until it
  // returns. Each operation answers as it would alone. False when the writes
  // could not be committed, and then what they wrote may be lost. An
  // exception from `operations` passes through once what ran before it is
  // committed. A store without such a commit runs the operations one by one.
  virtual bool writeTogether(const std::function<void()>& operations,
                             CommitDurability durability = CommitDurability::synced) {
    (void)durability;
    operations();
    return true;
  }
};

// The Linux store: one SQLite database per user with every value sealed
// (XChaCha20-Poly1305) under a key kept in a file beside it, both readable by
// the user alone. The location is `directory` when given, else
// $XDG_DATA_HOME/KivFaceLivenessLite, else ~/.local/share/KivFaceLivenessLite.
// Nothing is touched on disk until the first operation. Items written by one
// process are seen by every other process of the user on the same location.
std::shared_ptr<SecureItemStore> makeLinuxSecureStore(std::optional<std::filesystem::path> directory = std::nullopt);

}  // namespace kiv
