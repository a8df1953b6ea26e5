#include "ProjectServer/SessionStore.h"

#include <chrono>
#include <filesystem>

#include <sqlite3.h>
#include <sys/stat.h>

#include "ProjectServer/Credentials.h"

namespace orvan::engine {
namespace {

constexpr std::int64_t kSessionLifetimeSeconds = 30LL * 24 * 60 * 60;
constexpr int kBusyTimeoutMilliseconds = 2000;

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS sessions (
  id TEXT PRIMARY KEY,
  token_sha256 TEXT NOT NULL UNIQUE,
  user_id TEXT NOT NULL,
  client_id TEXT NOT NULL,
  created_at INTEGER NOT NULL,
  expires_at INTEGER NOT NULL
);
)";

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// One prepared statement, finalized when it goes.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool ok() const { return statement_ != nullptr; }
  Statement& bind(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
  }
  Statement& bind(int index, std::int64_t value) {
    sqlite3_bind_int64(statement_, index, value);
    return *this;
  }
  int step() { return sqlite3_step(statement_); }
  std::string text(int column) const {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes ? reinterpret_cast<const char*>(bytes) : "";
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

std::string failure(sqlite3* db, const std::string& what) {
  return what + ": " + sqlite3_errmsg(db);
}

SessionStore::Session sessionAt(const Statement& row) {
  return SessionStore::Session{.id = row.text(0),
                               .userId = row.text(1),
                               .clientId = row.text(2),
                               .createdAt = row.integer(3),
                               .expiresAt = row.integer(4)};
}

}  // namespace

editor::Result<std::unique_ptr<SessionStore>, std::string> SessionStore::open(
    const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error)
    return "cannot create the state folder " + folder + ": " + error.message();
  ::chmod(folder.c_str(), 0700);
  const std::string path = (std::filesystem::path(folder) / kFileName).string();
  sqlite3* db = nullptr;
  const int opened =
      sqlite3_open_v2(path.c_str(), &db,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  std::unique_ptr<SessionStore> store(new SessionStore(db, path));
  if (opened != SQLITE_OK)
    return failure(db, "cannot open the session store " + path);
  ::chmod(path.c_str(), 0600);
  sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds);
  char* message = nullptr;
  const std::string setup = std::string("PRAGMA journal_mode=WAL;") + kSchema;
  if (sqlite3_exec(db, setup.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    std::string reason =
        "cannot set up the session store " + path + ": " + (message ? message : "unknown error");
    sqlite3_free(message);
    return reason;
  }
  return store;
}

SessionStore::~SessionStore() {
  sqlite3_close_v2(db_);
}

editor::Result<SessionStore::Issued, std::string> SessionStore::issue(const std::string& userId,
                                                                      const std::string& clientId) {
  Issued issued{.id = randomHex(8), .token = randomHex(32)};
  const std::int64_t created = now();
  const std::lock_guard lock(mutex_);
  Statement insert(db_,
                   "INSERT INTO sessions (id, token_sha256, user_id, client_id, created_at, "
                   "expires_at) VALUES (?, ?, ?, ?, ?, ?)");
  if (!insert.ok())
    return failure(db_, "cannot record the session");
  insert.bind(1, issued.id)
      .bind(2, sha256Hex(issued.token))
      .bind(3, userId)
      .bind(4, clientId)
      .bind(5, created)
      .bind(6, created + kSessionLifetimeSeconds);
  if (insert.step() != SQLITE_DONE)
    return failure(db_, "cannot record the session");
  return issued;
}

std::optional<SessionStore::Session> SessionStore::find(std::string_view token) {
  if (token.empty())
    return std::nullopt;
  // The lookup is by digest: timing tells nothing about the token itself.
  const std::string digest = sha256Hex(token);
  const std::lock_guard lock(mutex_);
  Statement select(db_,
                   "SELECT id, user_id, client_id, created_at, expires_at FROM sessions "
                   "WHERE token_sha256 = ? AND expires_at > ?");
  if (!select.ok())
    return std::nullopt;
  select.bind(1, digest).bind(2, now());
  if (select.step() != SQLITE_ROW)
    return std::nullopt;
  return sessionAt(select);
}

editor::Result<std::vector<SessionStore::Session>, std::string> SessionStore::list() {
  const std::lock_guard lock(mutex_);
  Statement select(db_,
                   "SELECT id, user_id, client_id, created_at, expires_at FROM sessions "
                   "WHERE expires_at > ? ORDER BY created_at, id");
  if (!select.ok())
    return failure(db_, "cannot list the sessions");
  select.bind(1, now());
  std::vector<Session> sessions;
  int status = SQLITE_ROW;
  while ((status = select.step()) == SQLITE_ROW)
    sessions.push_back(sessionAt(select));
  if (status != SQLITE_DONE)
    return failure(db_, "cannot list the sessions");
  return sessions;
}

editor::Result<bool, std::string> SessionStore::revoke(const std::string& id) {
  const std::lock_guard lock(mutex_);
  Statement remove(db_, "DELETE FROM sessions WHERE id = ?");
  if (!remove.ok())
    return failure(db_, "cannot revoke the session");
  remove.bind(1, id);
  if (remove.step() != SQLITE_DONE)
    return failure(db_, "cannot revoke the session");
  const bool existed = sqlite3_changes(db_) > 0;
  // Expired sessions are swept at the same time; they sign no one in anyway.
  Statement sweep(db_, "DELETE FROM sessions WHERE expires_at <= ?");
  if (sweep.ok())
    sweep.bind(1, now()).step();
  return existed;
}

}  // namespace orvan::engine
