#include "platform/secure_store/store_database.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace kiv {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS items ("
    "  service BLOB NOT NULL,"
    "  account BLOB NOT NULL,"
    "  sealed BLOB NOT NULL,"
    "  PRIMARY KEY (service, account)) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS items_by_account ON items (account);"
    // The chunks of the values kept in chunks; their heads are in items.
    "CREATE TABLE IF NOT EXISTS item_chunks ("
    "  service BLOB NOT NULL,"
    "  account BLOB NOT NULL,"
    "  chunk INTEGER NOT NULL,"
    "  sealed BLOB NOT NULL,"
    "  PRIMARY KEY (service, account, chunk));"
    "CREATE INDEX IF NOT EXISTS item_chunks_by_account ON item_chunks (account);"
    "CREATE TABLE IF NOT EXISTS defaults ("
    "  key TEXT NOT NULL PRIMARY KEY,"
    "  value TEXT NOT NULL) WITHOUT ROWID;";

// SQLite binds a null pointer as NULL, whatever the length: empty texts and
// blobs point here instead.
constexpr std::uint8_t kEmpty[1] = {0};

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Creates every missing component of `directory` readable by the user alone.
// Components that exist keep their modes: they may be shared folders.
bool makeDirectories(const fs::path& directory) {
  fs::path current;
  for (const auto& part : directory) {
    current /= part;
    if (::mkdir(current.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat info {};
  return ::stat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool writeAll(int fd, const std::uint8_t* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

enum class KeyRead { ok, missing, unusable };

KeyRead readKey(const fs::path& path, std::optional<ItemKey>& key) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (fd.get() < 0) return errno == ENOENT ? KeyRead::missing : KeyRead::unusable;
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size != static_cast<off_t>(kItemKeySize)) {
    return KeyRead::unusable;
  }
  // A key someone made readable to others is taken back first.
  if ((info.st_mode & 077) != 0) ::fchmod(fd.get(), 0600);
  std::array<std::uint8_t, kItemKeySize> bytes{};
  std::size_t got = 0;
  while (got < bytes.size()) {
    const ssize_t n = ::read(fd.get(), bytes.data() + got, bytes.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return KeyRead::unusable;
    got += static_cast<std::size_t>(n);
  }
  key.emplace(bytes);
  sodium_memzero(bytes.data(), bytes.size());
  return KeyRead::ok;
}

}  // namespace

// The key file appears whole or not at all: a new key is written to a
// private temporary file and linked into place, and link() refuses to replace
// an existing file. Of two processes racing here, the loser reads the
// winner's key, so both seal under the same one.
std::optional<ItemKey> loadOrCreateStoreKey(const fs::path& directory) {
  const fs::path path = directory / kStoreKeyFileName;
  std::optional<ItemKey> key;
  for (int attempt = 0; attempt < 3; ++attempt) {
    switch (readKey(path, key)) {
      case KeyRead::ok:
        return key;
      case KeyRead::unusable:
        return std::nullopt;  // never replace a key that sealed items
      case KeyRead::missing:
        break;
    }
    std::string temporary = (directory / ".store.key.XXXXXX").string();
    FileDescriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));  // created 0600
    if (fd.get() < 0) return std::nullopt;
    const ItemKey fresh = ItemKey::random();
    const bool written = ::fchmod(fd.get(), 0600) == 0 && writeAll(fd.get(), fresh.bytes().data(), kItemKeySize) &&
                         ::fsync(fd.get()) == 0;
    const bool linked = written && ::link(temporary.c_str(), path.c_str()) == 0;
    const int linkError = errno;
    ::unlink(temporary.c_str());
    if (linked) {
      FileDescriptor dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (dir.get() >= 0) ::fsync(dir.get());
      return fresh;
    }
    if (!written || linkError != EEXIST) return std::nullopt;
  }
  return std::nullopt;
}

namespace {

// SQLite gives its side files (-wal, -shm) the mode of the database file, so
// creating that one 0600 first keeps all three private.
bool prepareDatabaseFile(const fs::path& path) {
  FileDescriptor fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  return fd.get() >= 0 && ::fchmod(fd.get(), 0600) == 0;
}

bool execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

bool journalIsWal(sqlite3* db) {
  Statement statement(db, "PRAGMA journal_mode=WAL");
  if (!statement.ok() || statement.step() != SQLITE_ROW) return false;
  const auto* mode = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
  return mode != nullptr && std::string_view(mode) == "wal";
}

}  // namespace

std::optional<fs::path> defaultStoreDirectory() {
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && fs::path(data).is_absolute()) {
    return fs::path(data) / kStoreFolderName;
  }
  std::string home;
  if (const char* value = std::getenv("HOME"); value != nullptr && *value != '\0') {
    home = value;
  } else {
    std::vector<char> buffer(16384);
    struct passwd entry {};
    struct passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr) {
      home = found->pw_dir;
    }
  }
  if (home.empty()) return std::nullopt;
  return fs::path(home) / ".local" / "share" / kStoreFolderName;
}

StoreDatabase::StoreDatabase(std::optional<fs::path> directory, std::optional<ItemKey> sealingKey)
    : directory_(std::move(directory)), sealingKey_(std::move(sealingKey)) {}

StoreDatabase::~StoreDatabase() { closeLocked(); }

bool StoreDatabase::run(const Work& work) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr && !openLocked()) return false;
  work(db_, *key_);
  return true;
}

bool StoreDatabase::runTogether(const std::function<void()>& operations, bool synced) {
  std::lock_guard lock(mutex_);
  if (inTransaction_ || (db_ == nullptr && !openLocked())) {
    operations();
    return true;
  }
  // In WAL mode NORMAL appends the commit to the WAL without an fsync; the
  // next synced commit or checkpoint takes it to the disk. SQLite refuses
  // the change inside a transaction, and the setting is the connection's,
  // so it is made before BEGIN and undone once the transaction has ended.
  if (!synced) execute(db_, "PRAGMA synchronous=NORMAL");
  if (!execute(db_, "BEGIN IMMEDIATE")) {
    if (!synced) execute(db_, "PRAGMA synchronous=FULL");
    operations();
    return true;
  }
  inTransaction_ = true;
  try {
    operations();
  } catch (...) {
    finishTransactionLocked(synced);
    throw;
  }
  return finishTransactionLocked(synced);
}

bool StoreDatabase::finishTransactionLocked(bool synced) {
  inTransaction_ = false;
  bool committed = false;
  // SQLite ends a transaction by itself on some failures (a full disk, an
  // I/O error); what the operations wrote before that is gone.
  if (sqlite3_get_autocommit(db_) == 0) {
    committed = execute(db_, "COMMIT");
    if (!committed) execute(db_, "ROLLBACK");
  }
  if (!synced) execute(db_, "PRAGMA synchronous=FULL");
  return committed;
}

bool StoreDatabase::openLocked() {
  if (sodium_init() < 0) return false;
  const auto directory = directory_ ? directory_ : defaultStoreDirectory();
  if (!directory || !makeDirectories(*directory)) return false;
  key_ = sealingKey_ ? sealingKey_ : loadOrCreateStoreKey(*directory);
  if (!key_) return false;
  const fs::path path = *directory / kStoreDatabaseFileName;
  if (!prepareDatabaseFile(path)) return false;

  if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr) != SQLITE_OK) {
    closeLocked();
    return false;
  }
  sqlite3_extended_result_codes(db_, 1);
  // The file is ours, but anyone with the user's rights can replace it: its
  // schema gets no trust (no side-effecting functions in triggers or views)
  // and cannot be corrupted through SQL.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_busy_timeout(db_, kStoreBusyTimeoutMilliseconds);
  // WAL: readers never block the writer. FULL: a committed item has reached
  // the disk, so it survives a crash or a power cut.
  // FAST: a deleted item's cell is still zeroed in its page (where small
  // values such as credentials live), but the overflow pages of a large
  // value go to the free list as they are: they hold sealed bytes only.
  // Full zeroing (the system library's default) writes every freed page once
  // more, which made each enqueue onto a long analytics queue take half as
  // long again.
  //
  // Processes opening a fresh store at once race to switch it to WAL and to
  // make its table. The loser of that race can be answered BUSY at once,
  // without the busy handler, so the setup is tried again until the same
  // timeout the busy handler keeps.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStoreBusyTimeoutMilliseconds);
  while (!journalIsWal(db_) || !execute(db_, "PRAGMA synchronous=FULL") || !execute(db_, "PRAGMA secure_delete=FAST") ||
         !execute(db_, kSchema)) {
    const int code = sqlite3_errcode(db_) & 0xff;
    if ((code != SQLITE_BUSY && code != SQLITE_LOCKED) || std::chrono::steady_clock::now() >= deadline) {
      closeLocked();
      return false;
    }
    sqlite3_sleep(1);
  }
  return true;
}

void StoreDatabase::closeLocked() {
  if (db_ != nullptr) sqlite3_close_v2(db_);
  db_ = nullptr;
  key_.reset();
}

Statement::Statement(sqlite3* db, std::string_view sql) {
  if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr) != SQLITE_OK) {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
  }
}

Statement::~Statement() { sqlite3_finalize(statement_); }

bool Statement::bindText(int index, std::string_view text) {
  const char* data = text.empty() ? reinterpret_cast<const char*>(kEmpty) : text.data();
  return sqlite3_bind_text64(statement_, index, data, text.size(), SQLITE_STATIC, SQLITE_UTF8) == SQLITE_OK;
}

bool Statement::bindBlob(int index, std::span<const std::uint8_t> bytes) {
  const std::uint8_t* data = bytes.empty() ? kEmpty : bytes.data();
  return sqlite3_bind_blob64(statement_, index, data, bytes.size(), SQLITE_STATIC) == SQLITE_OK;
}

int Statement::step() {
  if (statement_ == nullptr) return SQLITE_MISUSE;
  return sqlite3_step(statement_);
}

}  // namespace kiv
