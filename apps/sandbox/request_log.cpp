#include "sandbox/request_log.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kiv::sandbox {
namespace {

constexpr std::string_view kSchema = R"sql(
CREATE TABLE IF NOT EXISTS requests (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  received_at TEXT NOT NULL,
  method TEXT NOT NULL,
  path TEXT NOT NULL,
  query TEXT NOT NULL,
  headers TEXT NOT NULL,
  body TEXT NOT NULL,
  status INTEGER,
  outcome TEXT NOT NULL DEFAULT ''
);
CREATE TABLE IF NOT EXISTS sessions (
  liveness_attempt_id TEXT PRIMARY KEY,
  session_id TEXT NOT NULL,
  person_id TEXT NOT NULL,
  client_id TEXT NOT NULL
);
)sql";

// One prepared statement; steps and reads by column index.
class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql) {
    if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement_, nullptr) != SQLITE_OK) {
      throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(db));
    }
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& bind(int index, std::int64_t number) {
    sqlite3_bind_int64(statement_, index, number);
    return *this;
  }
  Statement& bind(int index, std::optional<int> number) {
    if (number) {
      sqlite3_bind_int(statement_, index, *number);
    } else {
      sqlite3_bind_null(statement_, index);
    }
    return *this;
  }
  // True while there is a row to read.
  bool step() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
      throw std::runtime_error(std::string("sqlite: ") + sqlite3_errmsg(sqlite3_db_handle(statement_)));
    }
    return result == SQLITE_ROW;
  }
  std::string text(int column) const {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes ? std::string(reinterpret_cast<const char*>(bytes),
                               static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

std::string headersJson(const std::vector<std::pair<std::string, std::string>>& headers) {
  auto list = nlohmann::json::array();
  for (const auto& [name, value] : headers) list.push_back({name, value});
  // A Latin-1 header value is stored with its odd bytes replaced.
  return list.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::vector<std::pair<std::string, std::string>> headersFrom(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> headers;
  const auto list = nlohmann::json::parse(text, nullptr, false);
  if (!list.is_array()) return headers;
  for (const auto& pair : list) headers.emplace_back(pair.at(0).get<std::string>(), pair.at(1).get<std::string>());
  return headers;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
  });
}

// LIKE treats these as wildcards; a path is matched as written.
std::string escapeLike(std::string_view text) {
  std::string escaped;
  for (char c : text) {
    if (c == '%' || c == '_' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace

std::optional<std::string> SandboxRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers) {
    if (equalIgnoringCase(key, name)) return value;
  }
  return std::nullopt;
}

std::expected<std::unique_ptr<RequestLog>, std::string> RequestLog::open(
    const std::optional<std::filesystem::path>& file) {
  sqlite3* db = nullptr;
  if (file && file->empty()) return std::unexpected(std::string("cannot open the request log: no file name"));
  // Absolute, the name is always a file's: never ":memory:" nor an SQLite
  // URI such as "file:log?mode=memory".
  const std::string name = file ? std::filesystem::absolute(*file).string() : ":memory:";
  // The server's workers share the one connection behind the log's mutex.
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(name.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    std::string reason = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    return std::unexpected("cannot open " + name + ": " + reason);
  }
  char* error = nullptr;
  // WAL lets a person read the file with the sqlite3 shell while the sandbox
  // writes. The log is a test aid: losing its last records to a power cut is
  // fine, a sync on every request is not.
  const std::string setup =
      std::string(file ? "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;" : "") + std::string(kSchema);
  if (sqlite3_exec(db, setup.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::string reason = error ? error : "unknown error";
    sqlite3_free(error);
    sqlite3_close(db);
    return std::unexpected("cannot prepare " + name + ": " + reason);
  }
  return std::unique_ptr<RequestLog>(new RequestLog(db));
}

RequestLog::~RequestLog() { sqlite3_close(db_); }

std::int64_t RequestLog::record(const SandboxRequest& request) {
  std::lock_guard lock(mutex_);
  Statement insert(db_,
                   "INSERT INTO requests (received_at, method, path, query, headers, body, outcome) "
                   "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
  insert.bind(1, request.receivedAt)
      .bind(2, request.method)
      .bind(3, request.path)
      .bind(4, request.query)
      .bind(5, headersJson(request.headers))
      .bind(6, request.body)
      .bind(7, request.outcome)
      .step();
  return sqlite3_last_insert_rowid(db_);
}

void RequestLog::settle(std::int64_t id, std::optional<int> status, std::string_view outcome) {
  std::lock_guard lock(mutex_);
  Statement update(db_, "UPDATE requests SET status = ?1, outcome = ?2 WHERE id = ?3");
  update.bind(1, status).bind(2, outcome).bind(3, id).step();
}

std::vector<SandboxRequest> RequestLog::requests(const RequestFilter& filter) const {
  std::string sql =
      "SELECT id, received_at, method, path, query, headers, body, status, outcome FROM requests "
      "WHERE id > ?1";
  std::string path;
  if (filter.path) {
    path = filter.path->starts_with('/') ? *filter.path : "/" + *filter.path;
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    sql += " AND (path = ?2 OR path LIKE ?3 ESCAPE '\\')";
  }
  if (filter.method) sql += " AND method = ?4";
  sql += " ORDER BY id";

  std::lock_guard lock(mutex_);
  Statement select(db_, sql);
  select.bind(1, filter.afterId.value_or(0));
  if (filter.path) select.bind(2, path).bind(3, escapeLike(path) + "/%");
  if (filter.method) select.bind(4, *filter.method);
  std::vector<SandboxRequest> found;
  while (select.step()) {
    SandboxRequest request{.id = select.integer(0),
                           .receivedAt = select.text(1),
                           .method = select.text(2),
                           .path = select.text(3),
                           .query = select.text(4),
                           .headers = headersFrom(select.text(5)),
                           .body = select.text(6),
                           .outcome = select.text(8)};
    if (!select.isNull(7)) request.status = static_cast<int>(select.integer(7));
    found.push_back(std::move(request));
  }
  return found;
}

std::size_t RequestLog::clearRequests() {
  std::lock_guard lock(mutex_);
  Statement remove(db_, "DELETE FROM requests");
  remove.step();
  return static_cast<std::size_t>(sqlite3_changes(db_));
}

void RequestLog::rememberSession(const SessionRecord& session) {
  std::lock_guard lock(mutex_);
  Statement insert(db_,
                   "INSERT OR REPLACE INTO sessions (liveness_attempt_id, session_id, person_id, client_id) "
                   "VALUES (?1, ?2, ?3, ?4)");
  insert.bind(1, session.livenessAttemptId)
      .bind(2, session.sessionId)
      .bind(3, session.personId)
      .bind(4, session.clientId)
      .step();
}

std::optional<SessionRecord> RequestLog::session(std::string_view livenessAttemptId) const {
  std::lock_guard lock(mutex_);
  Statement select(db_, "SELECT session_id, person_id, client_id FROM sessions WHERE liveness_attempt_id = ?1");
  select.bind(1, livenessAttemptId);
  if (!select.step()) return std::nullopt;
  return SessionRecord{.sessionId = select.text(0),
                       .livenessAttemptId = std::string(livenessAttemptId),
                       .personId = select.text(1),
                       .clientId = select.text(2)};
}

}  // namespace kiv::sandbox
