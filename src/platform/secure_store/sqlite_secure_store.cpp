#include "platform/secure_store/sqlite_secure_store.hpp"

#include <algorithm>

namespace kiv {
namespace {

std::int32_t statusOfWrite(int result, sqlite3* db) {
  if (result == SQLITE_DONE)
    return sqlite3_changes(db) > 0 ? SecureStoreStatus::success : SecureStoreStatus::itemNotFound;
  if (result == SQLITE_CONSTRAINT_PRIMARYKEY) return SecureStoreStatus::duplicateItem;
  return SecureStoreStatus::ioError;
}

bool execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

// One item's address, bound as ?1 and ?2 of every statement below.
struct Address {
  std::string_view service;
  std::string_view account;

  bool bind(Statement& statement) const {
    return statement.ok() && statement.bindBlob(1, asBytes(service)) && statement.bindBlob(2, asBytes(account));
  }
};

// success when the item exists, itemNotFound when not, else ioError.
std::int32_t exists(sqlite3* db, const Address& item) {
  Statement select(db, "SELECT 1 FROM items WHERE service = ?1 AND account = ?2");
  if (!item.bind(select)) return SecureStoreStatus::ioError;
  const int result = select.step();
  if (result == SQLITE_ROW) return SecureStoreStatus::success;
  return result == SQLITE_DONE ? SecureStoreStatus::itemNotFound : SecureStoreStatus::ioError;
}

// The item's stored column, or absent when there is none (or it cannot be
// read: `status` says which).
std::optional<Bytes> readSealed(sqlite3* db, const Address& item, std::int32_t& status) {
  Statement select(db, "SELECT sealed FROM items WHERE service = ?1 AND account = ?2");
  if (!item.bind(select)) {
    status = SecureStoreStatus::ioError;
    return std::nullopt;
  }
  const int result = select.step();
  if (result != SQLITE_ROW) {
    status = result == SQLITE_DONE ? SecureStoreStatus::itemNotFound : SecureStoreStatus::ioError;
    return std::nullopt;
  }
  // Whatever sits in the column (even a value of another type after an
  // edit) is read as bytes; only a value sealed for this item opens.
  const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(select.get(), 0));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0));
  status = SecureStoreStatus::success;
  return Bytes(data, data + (data == nullptr ? 0 : size));
}

// The chunks of a chunked value, each opened with the digest its head
// lists; absent when one is missing or does not open.
std::optional<Bytes> readChunks(sqlite3* db, const ItemKey& key, const Address& item, const ChunkedHead& head) {
  Statement select(db, "SELECT chunk, sealed FROM item_chunks WHERE service = ?1 AND account = ?2 ORDER BY chunk");
  if (!item.bind(select)) return std::nullopt;
  Bytes value;
  value.reserve(static_cast<std::size_t>(head.length));
  for (std::uint64_t index = 0; index < head.digests.size(); ++index) {
    if (select.step() != SQLITE_ROW || sqlite3_column_int64(select.get(), 0) != static_cast<sqlite3_int64>(index)) {
      return std::nullopt;
    }
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(select.get(), 1));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 1));
    const auto chunk =
        openChunk(key, item.service, item.account, index, head.digests[index], {data, data == nullptr ? 0 : size});
    if (!chunk) return std::nullopt;
    value.insert(value.end(), chunk->begin(), chunk->end());
  }
  if (value.size() != head.length) return std::nullopt;
  return value;
}

// The digests of the chunks stored for the item now, when its value is
// chunked the way this store writes chunks; none otherwise.
std::vector<ChunkDigest> storedDigests(const ItemKey& key, const Address& item, const std::optional<Bytes>& sealed) {
  if (!sealed || !isChunkedHead(*sealed)) return {};
  auto head = openChunkedHead(key, item.service, item.account, *sealed);
  if (!head || head->chunkSize != kItemChunkSize) return {};
  return std::move(head->digests);
}

// Writes `value` as the item's: sealed whole when it fits one chunk, else
// in chunks (`digests` are theirs), where a chunk whose digest equals the
// one stored at its index is left as it is. A value that shares a prefix with the stored one (an
// append) rewrites its last chunks and the head only.
std::int32_t writeValue(sqlite3* db, const ItemKey& key, const Address& item, std::span<const std::uint8_t> value,
                        const std::vector<ChunkDigest>& digests, const std::vector<ChunkDigest>& stored, bool insert) {
  Bytes sealed;
  std::size_t chunks = 0;
  if (value.size() <= kItemChunkSize) {
    sealed = sealItemValue(key, item.service, item.account, value);
  } else {
    const ChunkedHead head{.length = value.size(), .chunkSize = kItemChunkSize, .digests = digests};
    chunks = head.digests.size();
    Statement upsert(db,
                     "INSERT OR REPLACE INTO item_chunks (service, account, chunk, sealed) VALUES (?1, ?2, ?3, ?4)");
    if (!item.bind(upsert)) return SecureStoreStatus::ioError;
    for (std::size_t index = 0; index < chunks; ++index) {
      if (index < stored.size() && stored[index] == head.digests[index]) continue;
      const Bytes chunk = sealChunk(
          key, item.service, item.account, index, head.digests[index],
          value.subspan(index * kItemChunkSize, std::min(kItemChunkSize, value.size() - index * kItemChunkSize)));
      if (sqlite3_bind_int64(upsert.get(), 3, static_cast<sqlite3_int64>(index)) != SQLITE_OK ||
          !upsert.bindBlob(4, chunk) || upsert.step() != SQLITE_DONE) {
        return SecureStoreStatus::ioError;
      }
      sqlite3_reset(upsert.get());
    }
    sealed = sealChunkedHead(key, item.service, item.account, head);
  }
  Statement trim(db, "DELETE FROM item_chunks WHERE service = ?1 AND account = ?2 AND chunk >= ?3");
  if (!item.bind(trim) || sqlite3_bind_int64(trim.get(), 3, static_cast<sqlite3_int64>(chunks)) != SQLITE_OK ||
      trim.step() != SQLITE_DONE) {
    return SecureStoreStatus::ioError;
  }
  Statement write(db, insert ? "INSERT INTO items (service, account, sealed) VALUES (?1, ?2, ?3)"
                             : "UPDATE items SET sealed = ?3 WHERE service = ?1 AND account = ?2");
  if (!item.bind(write) || !write.bindBlob(3, sealed)) return SecureStoreStatus::ioError;
  return statusOfWrite(write.step(), db);
}

}  // namespace

SqliteSecureStore::SqliteSecureStore(std::shared_ptr<StoreDatabase> database) : database_(std::move(database)) {}

std::int32_t SqliteSecureStore::writeItem(std::string_view service, std::string_view account,
                                          std::span<const std::uint8_t> value, bool insert) {
  const Address item{service, account};
  std::int32_t status = SecureStoreStatus::notAvailable;
  std::optional<ItemKey> digestKey;
  database_->run([&](sqlite3* db, const ItemKey& key) {
    // Callers that update an existing item add first: finding it before
    // digesting or sealing spares them doing that twice.
    status = insert ? exists(db, item) : SecureStoreStatus::itemNotFound;
    if (status == SecureStoreStatus::itemNotFound) digestKey = key;
    if (status == SecureStoreStatus::success) status = SecureStoreStatus::duplicateItem;
  });
  if (!digestKey) return status;
  // Digesting a long value takes a while: not while others wait for the store.
  const auto digests = value.size() > kItemChunkSize ? chunkDigests(*digestKey, value) : std::vector<ChunkDigest>{};

  // A value in chunks is several rows: they change together or not at all,
  // under the write lock from the first read on.
  status = SecureStoreStatus::notAvailable;
  const bool committed = database_->runTogether([&] {
    database_->run([&](sqlite3* db, const ItemKey& key) {
      const auto sealed = readSealed(db, item, status);
      if (status == SecureStoreStatus::ioError) return;
      if (insert == sealed.has_value()) {
        status = insert ? SecureStoreStatus::duplicateItem : SecureStoreStatus::itemNotFound;
        return;
      }
      if (!execute(db, "SAVEPOINT item_write")) {
        status = SecureStoreStatus::ioError;
        return;
      }
      status = writeValue(db, key, item, value, digests, storedDigests(key, item, sealed), insert);
      if (status != SecureStoreStatus::success) execute(db, "ROLLBACK TO item_write");
      execute(db, "RELEASE item_write");
    });
  });
  return committed || status != SecureStoreStatus::success ? status : SecureStoreStatus::ioError;
}

std::int32_t SqliteSecureStore::add(std::string_view service, std::string_view account,
                                    std::span<const std::uint8_t> value) {
  return writeItem(service, account, value, true);
}

std::int32_t SqliteSecureStore::update(std::string_view service, std::string_view account,
                                       std::span<const std::uint8_t> value) {
  return writeItem(service, account, value, false);
}

SecureItemCopy SqliteSecureStore::copyMatching(std::string_view service, std::string_view account) {
  SecureItemCopy copy{SecureStoreStatus::notAvailable, std::nullopt};
  database_->run([&](sqlite3* db, const ItemKey& key) {
    // One read snapshot for the head and its chunks: another connection's
    // write between them would read as a damaged value.
    if (!execute(db, "SAVEPOINT item_read")) {
      copy.status = SecureStoreStatus::ioError;
      return;
    }
    const Address item{service, account};
    if (const auto sealed = readSealed(db, item, copy.status)) {
      if (isChunkedHead(*sealed)) {
        const auto head = openChunkedHead(key, service, account, *sealed);
        if (head) copy.data = readChunks(db, key, item, *head);
      } else {
        copy.data = openItemValue(key, service, account, *sealed);
      }
      copy.status = copy.data ? SecureStoreStatus::success : SecureStoreStatus::itemNotFound;
    }
    execute(db, "RELEASE item_read");
  });
  return copy;
}

std::int32_t SqliteSecureStore::deleteAccount(std::string_view account) {
  std::int32_t status = SecureStoreStatus::notAvailable;
  const bool committed = database_->runTogether([&] {
    database_->run([&](sqlite3* db, const ItemKey&) {
      Statement chunks(db, "DELETE FROM item_chunks WHERE account = ?1");
      Statement remove(db, "DELETE FROM items WHERE account = ?1");
      if (!chunks.ok() || !chunks.bindBlob(1, asBytes(account)) || chunks.step() != SQLITE_DONE || !remove.ok() ||
          !remove.bindBlob(1, asBytes(account))) {
        status = SecureStoreStatus::ioError;
        return;
      }
      status = statusOfWrite(remove.step(), db);
    });
  });
  return committed || status != SecureStoreStatus::success ? status : SecureStoreStatus::ioError;
}

bool SqliteSecureStore::writeTogether(const std::function<void()>& operations, CommitDurability durability) {
  return database_->runTogether(operations, durability == CommitDurability::synced);
}

std::shared_ptr<SecureItemStore> makeLinuxSecureStore(std::optional<std::filesystem::path> directory) {
  return std::make_shared<SqliteSecureStore>(std::make_shared<StoreDatabase>(std::move(directory)));
}

}  // namespace kiv
