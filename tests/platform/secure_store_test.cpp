#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <barrier>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <thread>

#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "platform/defaults/memory_user_defaults.hpp"
#include "platform/scratch.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "platform/secure_store/store_database.hpp"
#include "support/programs.hpp"

namespace kiv {
namespace {

namespace fs = std::filesystem;
using testing::ScratchDirectory;
using Status = SecureStoreStatus;

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::optional<Bytes> read(SecureItemStore& store, std::string_view service, std::string_view account) {
  return store.copyMatching(service, account).data;
}

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 0777) : 0;
}

// Runs one statement on the store's database behind its back.
void tamper(const fs::path& directory, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((directory / kStoreDatabaseFileName).c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  const int result = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
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
  ScratchDirectory scratch;
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
  ScratchDirectory scratch;
  fs::path directory = scratch.path() / "data";
  std::shared_ptr<SecureItemStore> store = makeLinuxSecureStore(directory);
};

TEST_F(SqliteSecureStoreTest, AValueThatNoLongerOpensReadsAsAbsent) {
  const struct {
    const char* name;
    std::function<void()> damage;
  } cases[] = {
      {"changed byte",
       [&] {
         tamper(directory,
                "UPDATE items SET sealed = CAST(substr(sealed, 1, 30) || "
                "iif(substr(sealed, 31, 1) = X'00', X'01', X'00') || "
                "substr(sealed, 32) AS BLOB) WHERE account = CAST('victim' AS BLOB)");
       }},
      {"truncated",
       [&] {
         tamper(directory,
                "UPDATE items SET sealed = substr(sealed, 1, 20) "
                "WHERE account = CAST('victim' AS BLOB)");
       }},
      {"not bytes", [&] { tamper(directory, "UPDATE items SET sealed = 42 WHERE account = CAST('victim' AS BLOB)"); }},
      {"moved from another item",
       [&] {
         tamper(directory,
                "UPDATE items SET sealed = (SELECT sealed FROM items WHERE account = "
                "CAST('donor' AS BLOB)) WHERE account = CAST('victim' AS BLOB)");
       }},
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

TEST_F(SqliteSecureStoreTest, NothingIsWrittenBeforeFirstUseAndThenOnlyForTheUser) {
  EXPECT_FALSE(fs::exists(directory));
  ASSERT_EQ(store->add("svc", "acct", bytesOf("v")), Status::success);
  EXPECT_EQ(modeOf(directory), 0700u);
  for (const auto* name : {"store.sqlite3", "store.sqlite3-wal", "store.sqlite3-shm", "store.key"}) {
    EXPECT_EQ(modeOf(directory / name), 0600u) << name;
  }
  EXPECT_EQ(fs::file_size(directory / kStoreKeyFileName), 32u);
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

TEST_F(SqliteSecureStoreTest, ThreadsOnTwoConnectionsNeverFailEachOther) {
  auto second = makeLinuxSecureStore(directory);
  std::vector<std::jthread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      auto& mine = t % 2 == 0 ? *store : *second;
      const std::string service = "thread" + std::to_string(t);
      for (int i = 0; i < 25; ++i) {
        const std::string account = std::to_string(i);
        if (mine.add(service, account, asBytes(account)) != Status::success) ++failures;
        if (mine.update(service, account, asBytes(service)) != Status::success) ++failures;
        if (read(mine, service, account) != bytesOf(service)) ++failures;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(failures.load(), 0);
}

TEST_F(SqliteSecureStoreTest, AnItemWrittenByOneProcessIsReadByAnother) {
  const auto program = testing::programPath("store_item");
  ASSERT_EQ(testing::runToEnd(program, {directory, "put", "kiv.sdk.service", "fllitemobileToken", "from child"}), 0);
  EXPECT_EQ(read(*store, "kiv.sdk.service", "fllitemobileToken"), bytesOf("from child"));
  ASSERT_EQ(store->update("kiv.sdk.service", "fllitemobileToken", bytesOf("from parent")), Status::success);
  EXPECT_EQ(testing::runToEnd(program, {directory, "expect", "kiv.sdk.service", "fllitemobileToken", "from parent"}),
            0);
  EXPECT_EQ(testing::runToEnd(program, {directory, "expect", "kiv.sdk.service", "fllitemobileToken", "stale"}), 1);
}

TEST_F(SqliteSecureStoreTest, ProcessesRacingOnAFreshStoreAgreeOnOneKey) {
  constexpr int kCount = 30;
  const auto program = testing::programPath("store_item");
  testing::ChildProcess first(program, {directory, "fill", "first", std::to_string(kCount)});
  testing::ChildProcess second(program, {directory, "fill", "second", std::to_string(kCount)});
  for (int i = 0; i < kCount; ++i) {
    const std::string account = std::to_string(i);
    ASSERT_EQ(store->add("parent", account, asBytes(account)), Status::success);
  }
  ASSERT_EQ(first.wait(), 0);
  ASSERT_EQ(second.wait(), 0);
  auto fresh = makeLinuxSecureStore(directory);
  for (const auto* service : {"first", "second", "parent"}) {
    for (int i = 0; i < kCount; ++i) {
      const std::string account = std::to_string(i);
      EXPECT_EQ(read(*fresh, service, account), bytesOf(account)) << service << " " << account;
    }
  }
}

TEST(SecureStoreKey, CallersRacingToCreateItAllGetTheSameKey) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 40;
  ScratchDirectory scratch;
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
  const auto saved = [](const char* name) -> std::optional<std::string> {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
  };
  const auto xdg = saved("XDG_DATA_HOME");
  const auto home = saved("HOME");
  ::setenv("HOME", "/home/someone", 1);
  ::setenv("XDG_DATA_HOME", "/data/xdg", 1);
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/data/xdg/KivFaceLivenessLite"));
  ::setenv("XDG_DATA_HOME", "relative/data", 1);  // relative paths are to be ignored
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/home/someone/.local/share/KivFaceLivenessLite"));
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(defaultStoreDirectory(), fs::path("/home/someone/.local/share/KivFaceLivenessLite"));
  xdg ? ::setenv("XDG_DATA_HOME", xdg->c_str(), 1) : ::unsetenv("XDG_DATA_HOME");
  home ? ::setenv("HOME", home->c_str(), 1) : ::unsetenv("HOME");
}

// ---- User defaults ----

struct DefaultsKind {
  std::string name;
  std::function<std::shared_ptr<UserDefaults>(const fs::path&)> make;
  friend void PrintTo(const DefaultsKind& kind, std::ostream* out) { *out << kind.name; }
};

class UserDefaultsContract : public ::testing::TestWithParam<DefaultsKind> {
 protected:
  ScratchDirectory scratch;
};

TEST_P(UserDefaultsContract, KeepsOneStringPerKey) {
  auto defaults = GetParam().make(scratch.path());
  EXPECT_EQ(defaults->string("install_guid"), std::nullopt);
  defaults->setString("install_guid", "");
  EXPECT_EQ(defaults->string("install_guid"), "");  // empty is not absent
  defaults->setString("install_guid", "6F9619FF-8B86-D011-B42D-00C04FC964FF");
  defaults->setString("other", "x");
  EXPECT_EQ(defaults->string("install_guid"), "6F9619FF-8B86-D011-B42D-00C04FC964FF");
  defaults->remove("install_guid");
  defaults->remove("install_guid");
  EXPECT_EQ(defaults->string("install_guid"), std::nullopt);
  EXPECT_EQ(defaults->string("other"), "x");
}

INSTANTIATE_TEST_SUITE_P(
    Defaults, UserDefaultsContract,
    ::testing::Values(DefaultsKind{"sqlite", [](const fs::path& dir) { return makeLinuxUserDefaults(dir); }},
                      DefaultsKind{"memory", [](const fs::path&) { return std::make_shared<MemoryUserDefaults>(); }}),
    [](const auto& param) { return param.param.name; });

TEST(SqliteUserDefaults, PersistsInPlainBesideTheSealedItems) {
  ScratchDirectory scratch;
  makeLinuxUserDefaults(scratch.path())->setString("install_guid", "guid-1");
  ASSERT_EQ(makeLinuxSecureStore(scratch.path())->add("svc", "install_guid", bytesOf("sealed")), Status::success);
  EXPECT_EQ(makeLinuxUserDefaults(scratch.path())->string("install_guid"), "guid-1");

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((scratch.path() / kStoreDatabaseFileName).c_str(), &db), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(db, "SELECT value FROM defaults WHERE key = 'install_guid'", -1, &statement, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "guid-1");
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

}  // namespace
}  // namespace kiv
