// The one SQLite database per user that holds the secure items (sealed) and
// the user defaults (plain), and the key file beside it.
//
// Opened on first use, and again on the next use after a failed attempt (a
// directory that appears later, a lock that was released). One connection
// per StoreDatabase, used under a mutex; other connections, in this process
// or another, wait for each other through SQLite's busy timeout.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>

#include "platform/secure_store/item_sealing.hpp"

namespace kiv {

inline constexpr std::string_view kStoreFolderName = "KivFaceLivenessLite";
inline constexpr std::string_view kStoreDatabaseFileName = "store.sqlite3";
inline constexpr std::string_view kStoreKeyFileName = "store.key";

// How long one connection waits for another's lock before giving up.
inline constexpr int kStoreBusyTimeoutMilliseconds = 10'000;

// $XDG_DATA_HOME/KivFaceLivenessLite when that is an absolute path, else
// $HOME/.local/share/KivFaceLivenessLite (the passwd entry's home when HOME
// is unset); absent when no home is known.
std::optional<std::filesystem::path> defaultStoreDirectory();

// The key in `directory`, created on first use. Absent when the file cannot
// be read or created, or does not hold exactly one key.
std::optional<ItemKey> loadOrCreateStoreKey(const std::filesystem::path& directory);

class StoreDatabase {
 public:
  // The default location when `directory` is absent (resolved at opening).
  // Items are sealed under `sealingKey` when one is given (a host's keystore
  // key); the key file beside the database is then neither read nor written.
  explicit StoreDatabase(std::optional<std::filesystem::path> directory,
                         std::optional<ItemKey> sealingKey = std::nullopt);
  ~StoreDatabase();
  StoreDatabase(const StoreDatabase&) = delete;
  StoreDatabase& operator=(const StoreDatabase&) = delete;

  using Work = std::function<void(sqlite3* db, const ItemKey& key)>;

  // Runs `work` on the open connection, holding the lock. False, without
  // calling `work`, when the store cannot be opened.
  bool run(const Work& work);

  // Runs `operations`, whose run() calls on this thread share one
  // transaction, and commits it: synced to the disk, or with `synced` false
  // only written to the WAL file (a power cut may lose it). False when the
  // commit failed (nothing is promised). Nested, or with the store unusable,
  // the operations run alone.
  bool runTogether(const std::function<void()>& operations, bool synced = true);

 private:
  bool openLocked();
  void closeLocked();

  bool finishTransactionLocked(bool synced);

  // Recursive: the operations of runTogether() call run() under it.
  std::recursive_mutex mutex_;
  bool inTransaction_ = false;
  const std::optional<std::filesystem::path> directory_;
  const std::optional<ItemKey> sealingKey_;
  sqlite3* db_ = nullptr;
  std::optional<ItemKey> key_;
};

// A prepared statement that finalises itself.
class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool ok() const { return statement_ != nullptr; }
  sqlite3_stmt* get() const { return statement_; }
  // Bound bytes are not copied: they must outlive the last step(). Text is
  // bound as it is (SQLite does not check it).
  bool bindText(int index, std::string_view text);
  bool bindBlob(int index, std::span<const std::uint8_t> bytes);
  int step();

 private:
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace kiv
