#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <barrier>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>

#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "platform/secure_store/item_sealing.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "platform/secure_store/store_database.hpp"
#include "support/child_process.hpp"
#include "support/programs.hpp"

namespace kiv {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;
using Status = SecureStoreStatus;

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::optional<Bytes> read(SecureItemStore& store, std::string_view service, std::string_view account) {
  return store.copyMatching(service, account).data;
}

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 0777) : 0;
}

// The exit status of the store_item program; -1 when it did not exit by itself.
using Arguments = std::vector<std::string>;
int storeItem(const Arguments& arguments) {
  const auto end = testing::runToEnd(testing::programPath("store_item"), arguments, 100.0);
  return end.hung || end.exitSignal != 0 ? -1 : end.exitCode;
}

// Runs one statement on the store's database behind its back; the rows it
// selects (two columns) go to `rows`.
void tamper(const fs::path& directory, const std::string& sql, std::map<std::string, std::string>* rows = nullptr) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((directory / kStoreDatabaseFileName).c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  const auto row = [](void* out, int, char** values, char**) {
    (*static_cast<std::map<std::string, std::string>*>(out))[values[0]] = values[1];
    return 0;
  };
  const int result = sqlite3_exec(db, sql.c_str(), rows ? +row : nullptr, rows, &error);
  const std::string message = error ? error : "";
  sqlite3_free(error);
  sqlite3_close(db);
  ASSERT_EQ(result, SQLITE_OK) << message;
}

// ---- The primitives' contract, for the real store and the fake alike ----

struct StoreKind {
  std::string name;
  std::function<std::shared_ptr<SecureItemStore>(const fs::path&)> make;
  friend void PrintTo(const StoreKind& kind, std::ostream* out) { *out << kind.name; }
};

class SecureStoreContract : public ::testing::TestWithParam<StoreKind> {
 protected:
  TemporaryDirectory scratch;
  std::shared_ptr<SecureItemStore> store = GetParam().make(scratch.path());
};

TEST_P(SecureStoreContract, AddRefusesADuplicateAndUpdateReplacesOnlyAnExistingItem) {
  EXPECT_EQ(store->update("svc", "acct", bytesOf("x")), Status::itemNotFound);
  EXPECT_EQ(store->add("svc", "acct", bytesOf("first")), Status::success);
  EXPECT_EQ(store->add("svc", "acct", bytesOf("second")), Status::duplicateItem);
  EXPECT_EQ(read(*store, "svc", "acct"), bytesOf("first"));
  EXPECT_EQ(store->update("svc", "acct", bytesOf("third")), Status::success);
  EXPECT_EQ(read(*store, "svc", "acct"), bytesOf("third"));
  const auto missing = store->copyMatching("svc", "other");
  EXPECT_EQ(missing.status, Status::itemNotFound);
  EXPECT_FALSE(missing.data);
}

TEST_P(SecureStoreContract, DeleteRemovesTheAccountUnderEveryServiceOnly) {
  ASSERT_EQ(store->add("kiv.sdk.service", "key", bytesOf("1")), Status::success);
  ASSERT_EQ(store->add("other.service", "key", bytesOf("2")), Status::success);
  ASSERT_EQ(store->add("kiv.sdk.service", "keep", bytesOf("3")), Status::success);
  EXPECT_EQ(store->deleteAccount("key"), Status::success);
  EXPECT_FALSE(read(*store, "kiv.sdk.service", "key"));
  EXPECT_FALSE(read(*store, "other.service", "key"));
  EXPECT_EQ(read(*store, "kiv.sdk.service", "keep"), bytesOf("3"));
  EXPECT_EQ(store->deleteAccount("key"), Status::itemNotFound);
}

TEST_P(SecureStoreContract, ValuesAndAddressesRoundTripExactly) {
  const Bytes empty;
  const Bytes binary{0x00, 0xFF, 0x41, 0x00};
  Bytes large(1 << 20);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::uint8_t>(i * 31 + 7);
  const std::string nul("a\0b", 3);
  const struct {
    std::string service, account;
    Bytes value;
  } items[] = {{"s", "empty", empty},        {"s", "binary", binary},      {"s", "large", large},
               {"ab", "c", bytesOf("ab|c")}, {"a", "bc", bytesOf("a|bc")}, {"", "", bytesOf("blank")},
               {nul, nul, bytesOf("nul")},   {"a", "", bytesOf("a|")}};
  for (const auto& item : items) ASSERT_EQ(store->add(item.service, item.account, item.value), Status::success);
  for (const auto& item : items) {
    const auto copy = store->copyMatching(item.service, item.account);
    EXPECT_EQ(copy.status, Status::success) << item.account;
    EXPECT_EQ(copy.data, item.value) << item.account;
  }
  EXPECT_FALSE(read(*store, "a", std::string_view("a\0", 2)));
}

INSTANTIATE_TEST_SUITE_P(
    Stores, SecureStoreContract,
    ::testing::Values(StoreKind{"sqlite", [](const fs::path& dir) { return makeLinuxSecureStore(dir); }},
                      StoreKind{"memory", [](const fs::path&) { return std::make_shared<MemorySecureStore>(); }}),
    [](const auto& param) { return param.param.name; });

// ---- The real store ----

class SqliteSecureStoreTest : public ::testing::Test {
 protected:
  TemporaryDirectory scratch;
  fs::path directory = scratch.path() / "data";
  std::shared_ptr<SecureItemStore> store = makeLinuxSecureStore(directory);
};

TEST_F(SqliteSecureStoreTest, AValueThatNoLongerOpensReadsAsAbsent) {
  // Each damages the sealed value of "victim"; "donor" holds another value.
  auto sql = [&](std::string set) {
    return
        [&, set] { tamper(directory, "UPDATE items SET sealed = " + set + " WHERE account = CAST('victim' AS BLOB)"); };
  };
  const struct {
    const char* name;
    std::function<void()> damage;
  } cases[] = {
      {"changed byte", sql("CAST(substr(sealed, 1, 30) || iif(substr(sealed, 31, 1) = X'00', X'01', X'00') || "
                           "substr(sealed, 32) AS BLOB)")},
      {"truncated", sql("substr(sealed, 1, 20)")},
      {"not bytes", sql("42")},
      {"moved from another item", sql("(SELECT sealed FROM items WHERE account = CAST('donor' AS BLOB))")},
      {"other key",
       [&] {
         store.reset();
         fs::remove(directory / kStoreKeyFileName);
         store = makeLinuxSecureStore(directory);
         ASSERT_EQ(store->add("svc", "fresh", bytesOf("new key")), Status::success);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    store->deleteAccount("victim");
    store->deleteAccount("donor");
    ASSERT_EQ(store->add("svc", "victim", bytesOf("secret value")), Status::success);
    ASSERT_EQ(store->add("svc", "donor", bytesOf("other value")), Status::success);
    c.damage();
    const auto copy = store->copyMatching("svc", "victim");
    EXPECT_EQ(copy.status, Status::itemNotFound);
    EXPECT_FALSE(copy.data);
  }
  EXPECT_EQ(read(*store, "svc", "fresh"), bytesOf("new key"));  // a new key seals and opens as before
}

// The sealed chunk rows of "long", by index, as hex.
std::map<std::string, std::string> chunkRows(const fs::path& directory) {
  std::map<std::string, std::string> rows;
  tamper(directory, "SELECT chunk, hex(sealed) FROM item_chunks WHERE account = CAST('long' AS BLOB)", &rows);
  return rows;
}

// A value longer than a chunk is kept in chunk rows: a rewrite leaves the
// chunks that did not change as they were (an append to a long queue costs
// its last chunk), and the value reads back whole whatever changed. A chunk
// that is missing, or left by an older version of the value, makes the
// value read as absent.
TEST_F(SqliteSecureStoreTest, ALongValueRewritesOnlyTheChunksThatChanged) {
  constexpr std::size_t chunk = kItemChunkSize;
  Bytes value(3 * chunk + 100);
  for (std::size_t i = 0; i < value.size(); ++i) value[i] = static_cast<std::uint8_t>(i * 31 + 7);
  ASSERT_EQ(store->add("svc", "long", value), Status::success);
  const struct {
    const char* name;
    std::function<void(Bytes&)> change;
    std::set<std::string> kept;  // chunk rows whose sealed bytes stay
    std::size_t rows;
  } steps[] = {
      {"append", [](Bytes& v) { v.insert(v.end(), 10, 1); }, {"0", "1", "2"}, 4},
      {"append past a chunk", [](Bytes& v) { v.insert(v.end(), chunk, 2); }, {"0", "1", "2"}, 5},
      {"change the middle", [](Bytes& v) { v[chunk + 5] ^= 1; }, {"0", "2", "3", "4"}, 5},
      {"drop the front", [](Bytes& v) { v.erase(v.begin(), v.begin() + 10); }, {}, 5},
      {"shrink to one chunk", [](Bytes& v) { v.resize(chunk); }, {}, 0},
      {"grow again", [](Bytes& v) { v.resize(2 * chunk + 1, 3); }, {}, 3},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    const auto before = chunkRows(directory);
    step.change(value);
    ASSERT_EQ(store->update("svc", "long", value), Status::success);
    EXPECT_EQ(read(*store, "svc", "long"), value);
    const auto after = chunkRows(directory);
    EXPECT_EQ(after.size(), step.rows);
    std::set<std::string> kept;
    for (const auto& [index, sealed] : after) {
      if (before.contains(index) && before.at(index) == sealed) kept.insert(index);
    }
    EXPECT_EQ(kept, step.kept);
  }

  const auto older = chunkRows(directory).at("1");
  value[chunk] ^= 1;
  ASSERT_EQ(store->update("svc", "long", value), Status::success);
  tamper(directory, "UPDATE item_chunks SET sealed = X'" + older + "' WHERE chunk = 1");
  EXPECT_FALSE(read(*store, "svc", "long"));
  value.assign(2 * chunk, 4);
  ASSERT_EQ(store->update("svc", "long", value), Status::success);
  tamper(directory, "DELETE FROM item_chunks WHERE chunk = 1");
  EXPECT_FALSE(read(*store, "svc", "long"));
  EXPECT_EQ(store->deleteAccount("long"), Status::success);
  EXPECT_TRUE(chunkRows(directory).empty());
}

TEST_F(SqliteSecureStoreTest, WritesMadeTogetherAreSeenByOthersOnlyWhenAllAreCommitted) {
  auto other = makeLinuxSecureStore(directory);
  ASSERT_EQ(store->add("svc", "old", bytesOf("gone soon")), Status::success);
  const bool committed = store->writeTogether(
      [&] {
        EXPECT_EQ(store->deleteAccount("old"), Status::success);
        EXPECT_EQ(store->add("svc", "a", bytesOf("1")), Status::success);
        EXPECT_EQ(store->add("svc", "a", bytesOf("again")), Status::duplicateItem);  // answers as it would alone
        EXPECT_EQ(store->update("svc", "a", bytesOf("2")), Status::success);
        EXPECT_EQ(read(*store, "svc", "a"), bytesOf("2"));
        EXPECT_TRUE(store->writeTogether([&] { EXPECT_EQ(store->add("svc", "b", bytesOf("3")), Status::success); }));
        // Another connection still sees the store as it was.
        EXPECT_EQ(read(*other, "svc", "old"), bytesOf("gone soon"));
        EXPECT_FALSE(read(*other, "svc", "a"));
        EXPECT_FALSE(read(*other, "svc", "b"));
      },
      CommitDurability::written);  // unsynced, but committed all the same
  EXPECT_TRUE(committed);
  EXPECT_FALSE(read(*other, "svc", "old"));
  EXPECT_EQ(read(*other, "svc", "a"), bytesOf("2"));
  EXPECT_EQ(read(*other, "svc", "b"), bytesOf("3"));

  EXPECT_THROW(store->writeTogether([&] {
    store->add("svc", "before", bytesOf("kept"));
    throw std::runtime_error("a save failed");
  }),
               std::runtime_error);
  EXPECT_EQ(read(*other, "svc", "before"), bytesOf("kept"));
  EXPECT_EQ(other->add("svc", "after", bytesOf("v")), Status::success);  // the store is free again
}

TEST_F(SqliteSecureStoreTest, NothingIsWrittenBeforeFirstUseAndThenOnlyForTheUser) {
  EXPECT_FALSE(fs::exists(directory));
  ASSERT_EQ(store->add("svc", "acct", bytesOf("v")), Status::success);
  EXPECT_EQ(modeOf(directory), 0700u);
  for (const auto* name : {"store.sqlite3", "store.sqlite3-wal", "store.sqlite3-shm", "store.key"}) {
    EXPECT_EQ(modeOf(directory / name), 0600u) << name;
  }
  EXPECT_EQ(fs::file_size(directory / kStoreKeyFileName), 32u);

  fs::permissions(directory / kStoreKeyFileName, fs::perms::group_read | fs::perms::others_read, fs::perm_options::add);
  ASSERT_EQ(read(*makeLinuxSecureStore(directory), "svc", "acct"), bytesOf("v"));
  EXPECT_EQ(modeOf(directory / kStoreKeyFileName), 0600u);  // taken back
}

TEST_F(SqliteSecureStoreTest, AnUnusableLocationFailsEachCallUntilItBecomesUsable) {
  std::ofstream(scratch.path() / "blocker") << "a file where a folder should be";
  auto blocked = makeLinuxSecureStore(scratch.path() / "blocker" / "store");
  EXPECT_EQ(blocked->add("svc", "acct", bytesOf("v")), Status::notAvailable);
  EXPECT_EQ(blocked->copyMatching("svc", "acct").status, Status::notAvailable);
  EXPECT_EQ(blocked->deleteAccount("acct"), Status::notAvailable);
  fs::remove(scratch.path() / "blocker");
  EXPECT_EQ(blocked->add("svc", "acct", bytesOf("v")), Status::success);

  fs::create_directories(scratch.path() / "garbage");
  std::ofstream(scratch.path() / "garbage" / kStoreDatabaseFileName) << std::string(4096, 'x');
  auto garbage = makeLinuxSecureStore(scratch.path() / "garbage");
  EXPECT_NE(garbage->add("svc", "acct", bytesOf("v")), Status::success);
  EXPECT_FALSE(read(*garbage, "svc", "acct"));
}

TEST_F(SqliteSecureStoreTest, ProcessesRacingOnAFreshStoreAgreeOnOneKeyAndSeeEachOthersItems) {
  constexpr int kCount = 30;
  const std::string count = std::to_string(kCount);
  auto first = std::async(std::launch::async, storeItem, Arguments{directory, "fill", "first", count});
  auto second = std::async(std::launch::async, storeItem, Arguments{directory, "fill", "second", count});
  for (int i = 0; i < kCount; ++i) {
    const std::string account = std::to_string(i);
    ASSERT_EQ(store->add("parent", account, asBytes(account)), Status::success);
  }
  ASSERT_EQ(first.get(), 0);
  ASSERT_EQ(second.get(), 0);
  for (const auto* service : {"first", "second", "parent"}) {
    for (int i = 0; i < kCount; ++i) {
      const std::string account = std::to_string(i);
      EXPECT_EQ(read(*store, service, account), bytesOf(account)) << service << " " << account;
    }
  }
  ASSERT_EQ(store->update("first", "0", bytesOf("from parent")), Status::success);
  EXPECT_EQ(storeItem({directory, "expect", "first", "0", "from parent"}), 0);
  EXPECT_EQ(storeItem({directory, "expect", "first", "0", "0"}), 1);
}

TEST(SecureStoreKey, CallersRacingToCreateItAllGetTheSameKey) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 40;
  TemporaryDirectory scratch;
  for (int round = 0; round < kRounds; ++round) {
    const fs::path directory = scratch.path() / std::to_string(round);
    fs::create_directory(directory);
    std::vector<std::optional<ItemKey>> keys(kThreads);
    std::barrier start(kThreads);
    {
      std::vector<std::jthread> threads;
      for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
          start.arrive_and_wait();
          keys[static_cast<std::size_t>(t)] = loadOrCreateStoreKey(directory);
        });
      }
    }
    for (const auto& key : keys) {
      ASSERT_TRUE(key) << "round " << round;
      ASSERT_EQ(key->bytes(), keys.front()->bytes()) << "round " << round;
    }
    EXPECT_EQ(loadOrCreateStoreKey(directory)->bytes(), keys.front()->bytes());
  }
}

TEST(SecureStoreLocation, FollowsXdgDataHomeThenHome) {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  const std::optional<std::string> savedXdg = xdg ? std::optional<std::string>(xdg) : std::nullopt;
  const std::string savedHome = std::getenv("HOME") ? std::getenv("HOME") : "";
  ::setenv("HOME", "/home/someone", 1);
  ::setenv("XDG_DATA_HOME", "/data/xdg", 1);
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/data/xdg/KivFaceLivenessLite"));
  ::setenv("XDG_DATA_HOME", "relative/data", 1);  // relative paths are to be ignored
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/home/someone/.local/share/KivFaceLivenessLite"));
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/home/someone/.local/share/KivFaceLivenessLite"));
  savedXdg ? ::setenv("XDG_DATA_HOME", savedXdg->c_str(), 1) : ::unsetenv("XDG_DATA_HOME");
  ::setenv("HOME", savedHome.c_str(), 1);
}

TEST(SqliteUserDefaults, KeepsOnePlainStringPerKeyAcrossInstances) {
  TemporaryDirectory scratch;
  auto defaults = makeLinuxUserDefaults(scratch.path());
  EXPECT_EQ(defaults->string("install_guid"), std::nullopt);
  defaults->setString("install_guid", "");
  EXPECT_EQ(defaults->string("install_guid"), "");  // empty is not absent
  defaults->setString("install_guid", "guid-1");
  defaults->setString("other", "x");
  ASSERT_EQ(makeLinuxSecureStore(scratch.path())->add("svc", "install_guid", bytesOf("sealed")), Status::success);
  EXPECT_EQ(makeLinuxUserDefaults(scratch.path())->string("install_guid"), "guid-1");

  tamper(scratch.path(), "UPDATE defaults SET value = value || '-edited' WHERE key = 'install_guid'");
  EXPECT_EQ(defaults->string("install_guid"), "guid-1-edited");  // stored in plain
  defaults->remove("install_guid");
  defaults->remove("install_guid");
  EXPECT_EQ(defaults->string("install_guid"), std::nullopt);
  EXPECT_EQ(defaults->string("other"), "x");
}

}  // namespace
}  // namespace kiv
