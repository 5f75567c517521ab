#include "platform/secure_store/sqlite_secure_store.hpp"

namespace kiv {
namespace {

std::int32_t statusOfWrite(int result, sqlite3* db) {
  if (result == SQLITE_DONE)
    return sqlite3_changes(db) > 0 ? SecureStoreStatus::success : SecureStoreStatus::itemNotFound;
  if (result == SQLITE_CONSTRAINT_PRIMARYKEY) return SecureStoreStatus::duplicateItem;
  return SecureStoreStatus::ioError;
}

}  // namespace

SqliteSecureStore::SqliteSecureStore(std::shared_ptr<StoreDatabase> database) : database_(std::move(database)) {}

std::int32_t SqliteSecureStore::add(std::string_view service, std::string_view account,
                                    std::span<const std::uint8_t> value) {
  std::int32_t status = SecureStoreStatus::notAvailable;
  database_->run([&](sqlite3* db, const ItemKey& key) {
    // Callers that update an existing item add first; finding the item before
    // sealing spares them sealing a large value twice.
    Statement exists(db, "SELECT 1 FROM items WHERE service = ?1 AND account = ?2");
    if (exists.ok() && exists.bindBlob(1, asBytes(service)) && exists.bindBlob(2, asBytes(account)) &&
        exists.step() == SQLITE_ROW) {
      status = SecureStoreStatus::duplicateItem;
      return;
    }
    const Bytes sealed = sealItemValue(key, service, account, value);
    Statement insert(db, "INSERT INTO items (service, account, sealed) VALUES (?1, ?2, ?3)");
    if (!insert.ok() || !insert.bindBlob(1, asBytes(service)) || !insert.bindBlob(2, asBytes(account)) ||
        !insert.bindBlob(3, sealed)) {
      status = SecureStoreStatus::ioError;
      return;
    }
    status = statusOfWrite(insert.step(), db);
  });
  return status;
}

std::int32_t SqliteSecureStore::update(std::string_view service, std::string_view account,
                                       std::span<const std::uint8_t> value) {
  std::int32_t status = SecureStoreStatus::notAvailable;
  database_->run([&](sqlite3* db, const ItemKey& key) {
    const Bytes sealed = sealItemValue(key, service, account, value);
    Statement change(db, "UPDATE items SET sealed = ?3 WHERE service = ?1 AND account = ?2");
    if (!change.ok() || !change.bindBlob(1, asBytes(service)) || !change.bindBlob(2, asBytes(account)) ||
        !change.bindBlob(3, sealed)) {
      status = SecureStoreStatus::ioError;
      return;
    }
    status = statusOfWrite(change.step(), db);
  });
  return status;
}

SecureItemCopy SqliteSecureStore::copyMatching(std::string_view service, std::string_view account) {
  SecureItemCopy copy{SecureStoreStatus::notAvailable, std::nullopt};
  database_->run([&](sqlite3* db, const ItemKey& key) {
    Statement select(db, "SELECT sealed FROM items WHERE service = ?1 AND account = ?2");
    if (!select.ok() || !select.bindBlob(1, asBytes(service)) || !select.bindBlob(2, asBytes(account))) {
      copy.status = SecureStoreStatus::ioError;
      return;
    }
    const int result = select.step();
    if (result != SQLITE_ROW) {
      copy.status = result == SQLITE_DONE ? SecureStoreStatus::itemNotFound : SecureStoreStatus::ioError;
      return;
    }
    // Whatever sits in the column (even a value of another type after an
    // edit) is read as bytes; only a value sealed for this item opens.
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(select.get(), 0));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0));
    copy.data = openItemValue(key, service, account, {data, data == nullptr ? 0 : size});
    copy.status = copy.data ? SecureStoreStatus::success : SecureStoreStatus::itemNotFound;
  });
  return copy;
}

std::int32_t SqliteSecureStore::deleteAccount(std::string_view account) {
  std::int32_t status = SecureStoreStatus::notAvailable;
  database_->run([&](sqlite3* db, const ItemKey&) {
    Statement remove(db, "DELETE FROM items WHERE account = ?1");
    if (!remove.ok() || !remove.bindBlob(1, asBytes(account))) {
      status = SecureStoreStatus::ioError;
      return;
    }
    status = statusOfWrite(remove.step(), db);
  });
  return status;
}

bool SqliteSecureStore::writeTogether(const std::function<void()>& operations, CommitDurability durability) {
  return database_->runTogether(operations, durability == CommitDurability::synced);
}

std::shared_ptr<SecureItemStore> makeLinuxSecureStore(std::optional<std::filesystem::path> directory) {
  return std::make_shared<SqliteSecureStore>(std::make_shared<StoreDatabase>(std::move(directory)));
}

}  // namespace kiv
