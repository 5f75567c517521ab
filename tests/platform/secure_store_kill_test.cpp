// kill -9 in the middle of secure-store writes: a child process writes
// values of 1 B to 1 MiB to the real store in a loop and is killed at a random
// moment, again and again over the same directory. After every kill the
// database passes SQLite's integrity check and every item holds exactly the
// value of its last finished write, or of the write that was under way.
//
// KIV_RELIABILITY_RUNS=n kills 10 n times (default n = 5); KIV_RELIABILITY_SEED
// replays the kill moments of an earlier run.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "kiv/platform/secure_store.hpp"
#include "platform/secure_store/store_database.hpp"
#include "support/programs.hpp"
#include "support/running_child.hpp"
#include "support/written_values.hpp"

namespace kiv {
namespace {

namespace fs = std::filesystem;

constexpr int kKeys = 8;
constexpr double kStartBound = 30.0;         // to the child's first write: beyond it the child is stuck
constexpr int kLatestKillMilliseconds = 40;  // after its first write began

int reliabilityRuns() {
  const char* runs = std::getenv("KIV_RELIABILITY_RUNS");
  return runs ? std::max(1, std::atoi(runs)) : 5;
}

std::uint32_t reliabilitySeed() {
  if (const char* seed = std::getenv("KIV_RELIABILITY_SEED")) return static_cast<std::uint32_t>(std::stoul(seed));
  return std::random_device{}();
}

// What one writer did before it was killed.
struct KilledWriter {
  bool started = false;  // its first write began within the bound
  int exitSignal = 0;    // SIGKILL, unless it ended by itself (it never should)
  std::uint64_t writesBegun = 0;
};

// Starts the writer, lets it begin its first write, lets it go on `killAfter`
// milliseconds more and kills it with SIGKILL. It prints a line as each
// write begins.
KilledWriter runAndKill(const fs::path& directory, std::uint64_t firstGeneration, int killAfter) {
  testing::RunningChild child(testing::programPath("store_writer"),
                              {directory.string(), std::to_string(firstGeneration), std::to_string(kKeys)});
  KilledWriter writer;
  writer.started = child.readLine(kStartBound).has_value();
  writer.writesBegun = writer.started ? 1 : 0;
  const double deadline = testing::monotonicSeconds() + killAfter / 1000.0;
  for (double left; writer.started && (left = deadline - testing::monotonicSeconds()) > 0;) {
    if (child.readLine(left)) ++writer.writesBegun;
  }
  child.signal(SIGKILL);
  const auto end = child.wait();
  writer.exitSignal = end.exitSignal;
  writer.writesBegun += static_cast<std::uint64_t>(std::ranges::count(end.output, '\n'));  // still in the pipe
  return writer;
}

std::string integrityCheck(const fs::path& database) {
  sqlite3* db = nullptr;
  std::string result = "cannot open";
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK) {
      result.clear();
      while (sqlite3_step(statement) == SQLITE_ROW) {
        result += reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
      }
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return result;
}

// The generation each key holds; absent while it has never been written.
using Generations = std::vector<std::optional<std::uint64_t>>;

std::string describe(const std::optional<std::uint64_t>& generation) {
  return generation ? "generation " + std::to_string(*generation) : "no value";
}

TEST(SecureStoreKillSlowTest, KilledWritesLeaveEachItemWholeOldOrNew) {
  const int kills = 10 * reliabilityRuns();
  const std::uint32_t seed = reliabilitySeed();
  std::printf("kill test seed %u (KIV_RELIABILITY_SEED=%u replays it), %d kills\n", seed, seed, kills);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> killAfter(0, kLatestKillMilliseconds);

  testing::TemporaryDirectory scratch;
  Generations held(kKeys);
  std::uint64_t totalWrites = 0, interrupted = 0;
  for (int run = 0; run < kills; ++run) {
    SCOPED_TRACE("kill " + std::to_string(run) + " of seed " + std::to_string(seed));
    const std::uint64_t first = static_cast<std::uint64_t>(run + 1) << 32;
    const KilledWriter writer = runAndKill(scratch.path(), first, killAfter(random));
    ASSERT_TRUE(writer.started) << "the writer never began a write";
    ASSERT_EQ(writer.exitSignal, SIGKILL) << "the writer ended by itself";
    totalWrites += writer.writesBegun;

    // The store opens on its first operation: a writer killed before its
    // first write opened it leaves no database, and nothing was lost.
    const fs::path database = scratch.path() / kStoreDatabaseFileName;
    const bool nothingEverFinished =
        writer.writesBegun == 1 && std::none_of(held.begin(), held.end(), [](const auto& g) { return g.has_value(); });
    if (!nothingEverFinished || fs::exists(database)) {
      ASSERT_EQ(integrityCheck(database), "ok");
    }

    // Write i of this run began for every i < writesBegun; all but the last
    // finished. The last one's key holds either its new value or what it
    // held before; every other key holds exactly its last finished value.
    const auto store = makeLinuxSecureStore(scratch.path());
    const std::uint64_t last = writer.writesBegun - 1;
    Generations before = held;
    for (std::uint64_t i = 0; i < last; ++i) before[i % kKeys] = first + i;
    held = before;
    const int lastKey = static_cast<int>(last % kKeys);
    held[lastKey] = first + last;
    for (int key = 0; key < kKeys; ++key) {
      const auto copy = store->copyMatching(testing::kWrittenService, testing::writtenAccount(key));
      const auto matches = [&](const std::optional<std::uint64_t>& generation) {
        return generation ? copy.data && *copy.data == testing::writtenValue(key, *generation) : !copy.data;
      };
      if (matches(held[key])) continue;
      if (key == lastKey && matches(before[key])) {
        held[key] = before[key];
        ++interrupted;
        continue;
      }
      FAIL() << "key " << key << " holds " << (copy.data ? std::to_string(copy.data->size()) + " bytes" : "nothing")
             << " matching neither " << describe(held[key]) << " nor " << describe(before[key]);
    }
  }
  std::printf("kill test: %d kills, %llu writes begun, %llu kills undid the write under way, all items whole\n", kills,
              static_cast<unsigned long long>(totalWrites), static_cast<unsigned long long>(interrupted));
}

}  // namespace
}  // namespace kiv
