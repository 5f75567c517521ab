// What the sandbox has seen: every backend request it received (path,
// headers, body, time and how it was answered) and the sessions it minted,
// kept in SQLite, in memory or in a file a person can open afterwards.
//
//   auto log = RequestLog::open(std::nullopt);        // in memory
//   auto id = (*log)->record(request);
//   (*log)->settle(id, 200, "session minted");
//   auto sessions = (*log)->requests({.path = "bff/sessions"});
//
// Safe from any thread: one connection behind one mutex.
#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct sqlite3;

namespace kiv::sandbox {

struct SandboxRequest {
  std::int64_t id = 0;       // arrival order, from 1
  std::string receivedAt{};  // UTC, ISO 8601 with milliseconds
  std::string method{};
  std::string path{};   // as sent, without the query: "/bff/sessions"
  std::string query{};  // without the "?": "asyncAttempt=true"
  std::vector<std::pair<std::string, std::string>> headers{};
  std::string body{};
  std::optional<int> status{};  // the answer's; absent while unanswered or when the connection was dropped
  std::string outcome{};        // what the sandbox did: "session minted", "fault: status 422", "dropped"...

  // The first header of that name, compared without regard to case.
  std::optional<std::string> header(std::string_view name) const;
};

struct RequestFilter {
  // A path and everything below it: "bff/transactions" matches
  // "/bff/transactions/a1/async". The leading "/" is optional.
  std::optional<std::string> path{};
  std::optional<std::string> method{};
  std::optional<std::int64_t> afterId{};  // only requests that came later
};

struct SessionRecord {
  std::string sessionId;
  std::string livenessAttemptId;
  std::string personId;
  std::string clientId;
};

class RequestLog {
 public:
  // `file` absent: an in-memory database. Otherwise the file of that name
  // (never read as an SQLite URI) is created when missing and its earlier
  // records are kept; an empty name is refused.
  static std::expected<std::unique_ptr<RequestLog>, std::string> open(const std::optional<std::filesystem::path>& file);
  ~RequestLog();
  RequestLog(const RequestLog&) = delete;
  RequestLog& operator=(const RequestLog&) = delete;

  // Stores `request` (its id and status are ignored) and returns its id.
  std::int64_t record(const SandboxRequest& request);
  // Writes how request `id` was answered.
  void settle(std::int64_t id, std::optional<int> status, std::string_view outcome);
  std::vector<SandboxRequest> requests(const RequestFilter& filter = {}) const;
  std::size_t clearRequests();

  void rememberSession(const SessionRecord& session);
  std::optional<SessionRecord> session(std::string_view livenessAttemptId) const;

 private:
  explicit RequestLog(sqlite3* db) : db_(db) {}

  mutable std::mutex mutex_;
  sqlite3* db_;
};

}  // namespace kiv::sandbox
