// Stored items come back from disk, where anything may have happened to
// them. Whatever the bytes, a read gives absent or a value and nothing else.
//
// Input: a mode byte, then
//   mode even: the bytes stored as an item's sealed value (under a fixed
//              key, so that mutations of a real sealed value are tried too);
//   mode odd:  the bytes as the whole database file.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/defaults/sqlite_user_defaults.hpp"
#include "platform/secure_store/item_sealing.hpp"
#include "platform/secure_store/sqlite_secure_store.hpp"
#include "platform/secure_store/store_database.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kiv;

constexpr std::string_view kService = "kiv.sdk.service";
constexpr std::string_view kAccount = "fllitemobileToken";

ItemKey fixedKey() {
  std::array<std::uint8_t, kItemKeySize> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  return ItemKey(bytes);
}

void check(bool condition) {
  if (!condition) __builtin_trap();
}

struct Scratch {
  fs::path root;
  fs::path sealed;  // directory of the long-lived store for sealed values
  fs::path whole;   // directory whose database file each input replaces
  std::shared_ptr<StoreDatabase> database;
  std::unique_ptr<SqliteSecureStore> store;

  Scratch() {
    // Memory-backed when possible: every commit of the store syncs to disk.
    const fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    std::string pattern = (base / "kivfll-fuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    root = pattern;
    sealed = root / "sealed";
    whole = root / "whole";
    for (const auto& directory : {sealed, whole}) {
      fs::create_directory(directory);
      const auto key = fixedKey();
      std::ofstream(directory / kStoreKeyFileName, std::ios::binary)
          .write(reinterpret_cast<const char*>(key.bytes().data()), kItemKeySize);
      fs::permissions(directory / kStoreKeyFileName, fs::perms::owner_read | fs::perms::owner_write);
    }
    database = std::make_shared<StoreDatabase>(sealed);
    store = std::make_unique<SqliteSecureStore>(database);
    // Durability is no concern here; speed is.
    database->run(
        [](sqlite3* db, const ItemKey&) { sqlite3_exec(db, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr); });
  }
  ~Scratch() {
    store.reset();
    database.reset();
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }
};

Scratch& scratch() {
  static Scratch instance;
  return instance;
}

// Stores `sealed` as the item's value behind the store's back, then reads it.
std::optional<Bytes> storeAndRead(std::string_view account, std::span<const std::uint8_t> sealed) {
  scratch().database->run([&](sqlite3* db, const ItemKey&) {
    Statement put(db, "INSERT OR REPLACE INTO items (service, account, sealed) VALUES (?1, ?2, ?3)");
    check(put.ok() && put.bindBlob(1, asBytes(kService)) && put.bindBlob(2, asBytes(account)) &&
          put.bindBlob(3, sealed) && put.step() == SQLITE_DONE);
  });
  const auto copy = scratch().store->copyMatching(kService, account);
  check((copy.status == SecureStoreStatus::success) == copy.data.has_value());
  return copy.data;
}

void storedValue(std::span<const std::uint8_t> bytes) {
  check(storeAndRead(kAccount, bytes) == openItemValue(fixedKey(), kService, kAccount, bytes));
  // The same bytes under another account never open.
  check(!storeAndRead("moved", bytes));
}

void databaseFile(std::span<const std::uint8_t> bytes) {
  auto& s = scratch();
  const fs::path file = s.whole / kStoreDatabaseFileName;
  std::error_code ignored;
  fs::remove(s.whole / (std::string(kStoreDatabaseFileName) + "-wal"), ignored);
  fs::remove(s.whole / (std::string(kStoreDatabaseFileName) + "-shm"), ignored);
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));

  auto database = std::make_shared<StoreDatabase>(s.whole);
  SqliteSecureStore store(database);
  SqliteUserDefaults defaults(database);
  const auto copy = store.copyMatching(kService, kAccount);
  check((copy.status == SecureStoreStatus::success) == copy.data.has_value());
  (void)defaults.string("install_guid");
  // A hostile file may hold any schema, so a write is not promised to read
  // back; it must only not crash.
  const std::uint8_t value[] = {1, 2, 3};
  store.add(kService, "fresh", value);
  const auto back = store.copyMatching(kService, "fresh");
  check((back.status == SecureStoreStatus::success) == back.data.has_value());
  store.deleteAccount(kAccount);
  defaults.setString("install_guid", "x");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::span<const std::uint8_t> bytes(data + 1, size - 1);
  if (data[0] % 2 == 0) {
    storedValue(bytes);
  } else {
    databaseFile(bytes);
  }
  return 0;
}
