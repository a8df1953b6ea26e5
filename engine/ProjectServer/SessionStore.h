#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvan/wire/Error.h"

struct sqlite3;

namespace orvan::engine {

// The sessions that sign-in has issued, kept in an SQLite file (`sessions.sqlite3`, write-ahead
// log) under the server's state folder. A token exists in clear only in the answer that issued
// it; the store holds its SHA-256 digest, so a copy of the file signs no one in. A session lasts
// 30 days unless it is revoked first; revoking deletes it. Several processes may use one file
// (the running server, and `orvan_project_server sessions` beside it); every lookup reads the
// file, so a revocation counts from the next request on.
class SessionStore {
 public:
  struct Session {
    std::string id = {};  // 16 hex digits; what `sessions revoke` names
    std::string userId = {};
    std::string clientId = {};
    std::int64_t createdAt = 0;  // seconds since the Unix epoch
    std::int64_t expiresAt = 0;
  };
  struct Issued {
    std::string id = {};
    std::string token = {};  // 64 hex digits: 256 random bits
  };

  static constexpr const char* kFileName = "sessions.sqlite3";

  // Opens or creates the store in `folder`, creating the folder (mode 0700) when needed.
  static editor::Result<std::unique_ptr<SessionStore>, std::string> open(const std::string& folder);
  ~SessionStore();
  SessionStore(const SessionStore&) = delete;
  SessionStore& operator=(const SessionStore&) = delete;

  editor::Result<Issued, std::string> issue(const std::string& userId, const std::string& clientId);
  // The session a token belongs to; nothing when it is unknown, revoked or expired.
  std::optional<Session> find(std::string_view token);
  editor::Result<std::vector<Session>, std::string> list();
  // Whether a session with this id existed (and is now gone).
  editor::Result<bool, std::string> revoke(const std::string& id);

  const std::string& path() const { return path_; }

 private:
  SessionStore(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}

  std::mutex mutex_;
  sqlite3* db_;
  std::string path_;
};

}  // namespace orvan::engine
