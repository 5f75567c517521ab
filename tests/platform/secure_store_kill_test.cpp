// kill -9 in the middle of secure-store writes: a child process writes
// values of 1 B to 1 MiB to the real store in a loop and is killed at a random
// moment, again and again over the same directory. After every kill the
// database passes SQLite's integrity check and every item holds exactly the
// value of its last finished write, or of the write that was under way.
//
// KIV_RELIABILITY_RUNS=n kills 10 n times (default n = 5); KIV_RELIABILITY_SEED
// replays the kill moments of an earlier run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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
#include "support/child_process.hpp"
#include "support/programs.hpp"
#include "support/written_values.hpp"

extern char** environ;

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
  bool started = false;     // its first write began within the bound
  bool endedAlone = false;  // it ended before the kill (it never should)
  int status = 0;
  std::uint64_t writesBegun = 0;
};

// Starts the writer, lets it begin its first write, waits `killAfter` more
// (reading its progress all along) and kills it with SIGKILL.
KilledWriter runAndKill(const fs::path& directory, std::uint64_t firstGeneration, int killAfter) {
  KilledWriter writer;
  int out[2] = {-1, -1};
  if (pipe2(out, O_CLOEXEC) != 0) return writer;
  const std::string program = testing::programPath("store_writer");
  const std::string dir = directory.string(), first = std::to_string(firstGeneration), keys = std::to_string(kKeys);
  char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(dir.c_str()), const_cast<char*>(first.c_str()),
                  const_cast<char*>(keys.c_str()), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  pid_t pid = 0;
  const bool spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (!spawned) {
    close(out[0]);
    return writer;
  }

  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  auto readProgress = [&](double boundSeconds) {
    // Returns once the bound passed or the child ended; counts progress bytes.
    const double deadline = testing::monotonicSeconds() + boundSeconds;
    pollfd waits[2] = {{out[0], POLLIN, 0}, {process, POLLIN, 0}};
    for (;;) {
      const double left = deadline - testing::monotonicSeconds();
      if (left <= 0 || (waits[0].fd < 0 && waits[1].fd < 0)) return;
      if (writer.started == false && writer.writesBegun > 0) {
        writer.started = true;
        return;
      }
      if (poll(waits, 2, static_cast<int>(left * 1000)) <= 0) continue;
      if (waits[1].revents) {
        writer.endedAlone = true;
        waits[1].fd = -1;
      }
      if (waits[0].revents) {
        char chunk[4096];
        const ssize_t n = read(out[0], chunk, sizeof chunk);
        if (n > 0) {
          writer.writesBegun += static_cast<std::uint64_t>(n);
        } else {
          waits[0].fd = -1;
        }
      }
    }
  };
  readProgress(kStartBound);
  if (writer.started) readProgress(killAfter / 1000.0);
  kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  writer.status = status;
  // Bytes written just before the kill are still in the pipe.
  char chunk[4096];
  for (ssize_t n; (n = read(out[0], chunk, sizeof chunk)) > 0;) writer.writesBegun += static_cast<std::uint64_t>(n);
  close(out[0]);
  close(process);
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
    ASSERT_FALSE(writer.endedAlone && !(WIFSIGNALED(writer.status) && WTERMSIG(writer.status) == SIGKILL))
        << "the writer ended by itself, status " << writer.status;
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
