#include "Store/ProjectStore.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <unordered_map>

#include <sqlite3.h>

#include "Store/ContentHash.h"

namespace orvan::engine {
namespace {

// 2 added the muted layers; a store of schema 1 gets the table when it is opened.
constexpr int kSchemaVersion = 2;
constexpr int kBusyTimeoutMilliseconds = 5000;
// Blobs are kept in pieces: a layer may be larger than the biggest value SQLite takes in one cell.
constexpr std::size_t kBlobPieceBytes = 4u << 20;
// Revision numbers are unsigned in the interface and signed 64-bit integers in the file.
constexpr std::uint64_t kLargestRevision =
    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS workspaces (
  name TEXT PRIMARY KEY,
  head INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS revisions (
  workspace TEXT NOT NULL,
  revision INTEGER NOT NULL,
  author TEXT NOT NULL,
  client_id TEXT NOT NULL,
  label TEXT NOT NULL,
  time_ms INTEGER NOT NULL,
  change_set TEXT NOT NULL,
  UNIQUE (workspace, revision)
);
CREATE TABLE IF NOT EXISTS revision_layers (
  workspace TEXT NOT NULL,
  revision INTEGER NOT NULL,
  layer_path TEXT NOT NULL,
  PRIMARY KEY (workspace, revision, layer_path)
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS revision_layers_by_path
  ON revision_layers (workspace, layer_path, revision);
CREATE TABLE IF NOT EXISTS blobs (
  hash TEXT PRIMARY KEY,
  size INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS blob_pieces (
  hash TEXT NOT NULL REFERENCES blobs (hash),
  piece INTEGER NOT NULL,
  bytes BLOB NOT NULL,
  UNIQUE (hash, piece)
);
CREATE TABLE IF NOT EXISTS snapshots (
  workspace TEXT NOT NULL,
  revision INTEGER NOT NULL,
  layer_path TEXT NOT NULL,
  blob_hash TEXT NOT NULL REFERENCES blobs (hash),
  PRIMARY KEY (workspace, layer_path, revision)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS write_backs (
  workspace TEXT NOT NULL,
  layer_path TEXT NOT NULL,
  revision INTEGER NOT NULL,
  content_hash TEXT NOT NULL,
  size INTEGER NOT NULL,
  modified_ns INTEGER NOT NULL,
  inode INTEGER NOT NULL,
  pending_revision INTEGER NOT NULL,
  pending_hash TEXT NOT NULL,
  PRIMARY KEY (workspace, layer_path)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS muted_layers (
  workspace TEXT NOT NULL,
  scene TEXT NOT NULL,
  layer_path TEXT NOT NULL,
  PRIMARY KEY (workspace, scene, layer_path)
) WITHOUT ROWID;
)";

std::int64_t nowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::int64_t toColumn(std::uint64_t value) {
  return static_cast<std::int64_t>(std::min(value, kLargestRevision));
}

}  // namespace

// The connection and its prepared statements, kept for the store's life.
struct StoreConnection {
  sqlite3* db = nullptr;
  std::unordered_map<const char*, sqlite3_stmt*> statements;

  ~StoreConnection() {
    for (auto& [sql, statement] : statements)
      sqlite3_finalize(statement);
    sqlite3_close_v2(db);
  }

  StoreError failure(const std::string& what) const {
    return StoreError{what + ": " + sqlite3_errmsg(db)};
  }

  StoreStatus execute(const char* sql) {
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK)
      return editor::Unit{};
    std::string reason = message ? message : sqlite3_errmsg(db);
    sqlite3_free(message);
    return StoreError{reason};
  }
};

namespace {

// One use of a cached prepared statement: bound, stepped, then reset when it goes.
class Query {
 public:
  Query(StoreConnection& connection, const char* sql);
  ~Query() {
    if (statement_) {
      sqlite3_reset(statement_);
      sqlite3_clear_bindings(statement_);
    }
  }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  bool ok() const { return statement_ != nullptr; }
  // Ready to be bound and stepped again.
  void rearm() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Query& bind(int index, std::string_view text) {
    sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
  }
  Query& bindBytes(int index, std::string_view bytes) {
    sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                      SQLITE_STATIC);
    return *this;
  }
  Query& bind(int index, std::int64_t value) {
    sqlite3_bind_int64(statement_, index, value);
    return *this;
  }
  Query& bindRevision(int index, std::uint64_t value) { return bind(index, toColumn(value)); }
  int step() { return sqlite3_step(statement_); }
  bool done() { return step() == SQLITE_DONE; }
  std::string text(int column) const {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes ? std::string(reinterpret_cast<const char*>(bytes),
                               static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                 : std::string();
  }
  std::string_view bytes(int column) const {
    const void* data = sqlite3_column_blob(statement_, column);
    return data ? std::string_view(
                      static_cast<const char*>(data),
                      static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                : std::string_view();
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  std::uint64_t revision(int column) const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, integer(column)));
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

Query::Query(StoreConnection& connection, const char* sql) {
  auto found = connection.statements.find(sql);
  if (found != connection.statements.end()) {
    statement_ = found->second;
    return;
  }
  if (sqlite3_prepare_v3(connection.db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) !=
      SQLITE_OK) {
    statement_ = nullptr;
    return;
  }
  connection.statements.emplace(sql, statement_);
}

// A write transaction that is rolled back unless it is committed. BEGIN IMMEDIATE takes the write
// lock at once, so the head read inside it is the head the new revision follows, even when
// another process shares the file.
class Transaction {
 public:
  explicit Transaction(StoreConnection& connection) : connection_(connection) {
    Query begin(connection_, "BEGIN IMMEDIATE");
    began_ = begin.ok() && begin.done();
  }
  ~Transaction() {
    if (began_ && !committed_) {
      Query rollback(connection_, "ROLLBACK");
      if (rollback.ok())
        rollback.step();
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  bool began() const { return began_; }
  bool commit() {
    Query commit(connection_, "COMMIT");
    committed_ = commit.ok() && commit.done();
    return committed_;
  }

 private:
  StoreConnection& connection_;
  bool began_ = false;
  bool committed_ = false;
};

constexpr const char* kHeadSql = "SELECT head FROM workspaces WHERE name = ?";

StoreResult<std::uint64_t> readHead(StoreConnection& connection, const std::string& workspace) {
  Query head(connection, kHeadSql);
  if (!head.ok())
    return connection.failure("cannot read the head revision");
  head.bind(1, workspace);
  const int status = head.step();
  if (status == SQLITE_DONE)
    return std::uint64_t{0};
  if (status != SQLITE_ROW)
    return connection.failure("cannot read the head revision");
  return head.revision(0);
}

StoreResult<std::string> storeBlob(StoreConnection& connection, std::string_view content) {
  std::string hash = contentHash(content);
  if (hash.empty())
    return StoreError{"the SHA-256 digest is not available"};
  Query known(connection, "SELECT 1 FROM blobs WHERE hash = ?");
  if (!known.ok())
    return connection.failure("cannot store a blob");
  known.bind(1, hash);
  if (known.step() == SQLITE_ROW)
    return hash;
  Query insert(connection, "INSERT INTO blobs (hash, size) VALUES (?, ?)");
  if (!insert.ok() ||
      !insert.bind(1, hash).bind(2, static_cast<std::int64_t>(content.size())).done())
    return connection.failure("cannot store a blob");
  Query piece(connection, "INSERT INTO blob_pieces (hash, piece, bytes) VALUES (?, ?, ?)");
  if (!piece.ok())
    return connection.failure("cannot store a blob");
  std::int64_t index = 0;
  std::size_t offset = 0;
  do {
    const std::string_view bytes = content.substr(offset, kBlobPieceBytes);
    piece.bind(1, hash).bind(2, index).bindBytes(3, bytes);
    if (!piece.done())
      return connection.failure("cannot store a blob");
    piece.rearm();
    offset += bytes.size();
    ++index;
  } while (offset < content.size());
  return hash;
}

StoreStatus recordSnapshot(StoreConnection& connection, const std::string& workspace,
                           std::uint64_t revision,
                           const std::map<std::string, std::string>& blobHashByPath) {
  for (const auto& [path, hash] : blobHashByPath) {
    Query known(connection, "SELECT 1 FROM blobs WHERE hash = ?");
    if (!known.ok())
      return connection.failure("cannot record the snapshot");
    known.bind(1, hash);
    if (known.step() != SQLITE_ROW)
      return StoreError{"cannot record the snapshot of " + path + ": no blob " + hash};
    Query insert(connection,
                 "INSERT OR REPLACE INTO snapshots (workspace, revision, layer_path, blob_hash) "
                 "VALUES (?, ?, ?, ?)");
    if (!insert.ok() ||
        !insert.bind(1, workspace).bindRevision(2, revision).bind(3, path).bind(4, hash).done())
      return connection.failure("cannot record the snapshot");
  }
  return editor::Unit{};
}

StoreResult<std::vector<StoredRevision>> readRevisions(StoreConnection& connection,
                                                       const std::string& workspace,
                                                       std::uint64_t after, std::uint64_t through,
                                                       std::uint64_t limit) {
  std::vector<StoredRevision> found;
  {
    Query rows(connection,
               "SELECT revision, author, client_id, label, time_ms, change_set FROM revisions "
               "WHERE workspace = ? AND revision > ? AND revision <= ? ORDER BY revision LIMIT ?");
    if (!rows.ok())
      return connection.failure("cannot read the revisions");
    rows.bind(1, workspace)
        .bindRevision(2, after)
        .bindRevision(3, through)
        .bind(4, static_cast<std::int64_t>(std::min(limit, kLargestRevision)));
    int status = SQLITE_ROW;
    while ((status = rows.step()) == SQLITE_ROW)
      found.push_back(StoredRevision{.workspace = workspace,
                                     .revision = rows.revision(0),
                                     .author = rows.text(1),
                                     .clientId = rows.text(2),
                                     .label = rows.text(3),
                                     .timeMilliseconds = rows.integer(4),
                                     .changeSetText = rows.text(5)});
    if (status != SQLITE_DONE)
      return connection.failure("cannot read the revisions");
  }
  if (found.empty())
    return found;
  Query layers(connection,
               "SELECT revision, layer_path FROM revision_layers "
               "WHERE workspace = ? AND revision >= ? AND revision <= ? ORDER BY revision, "
               "layer_path");
  if (!layers.ok())
    return connection.failure("cannot read the revisions");
  layers.bind(1, workspace)
      .bindRevision(2, found.front().revision)
      .bindRevision(3, found.back().revision);
  std::size_t next = 0;
  int status = SQLITE_ROW;
  while ((status = layers.step()) == SQLITE_ROW) {
    const std::uint64_t revision = layers.revision(0);
    while (next < found.size() && found[next].revision < revision)
      ++next;
    if (next < found.size() && found[next].revision == revision)
      found[next].layerPaths.push_back(layers.text(1));
  }
  if (status != SQLITE_DONE)
    return connection.failure("cannot read the revisions");
  return found;
}

WriteBackRecord writeBackAt(const Query& row) {
  return WriteBackRecord{
      .path = row.text(0),
      .revision = row.revision(1),
      .contentHash = row.text(2),
      .stamp =
          FileStamp{.exists = row.integer(3) >= 0,
                    .size = static_cast<std::uint64_t>(std::max<std::int64_t>(0, row.integer(3))),
                    .modifiedNanoseconds = row.integer(4),
                    .inode = static_cast<std::uint64_t>(row.integer(5))},
      .pendingRevision = row.revision(6),
      .pendingHash = row.text(7)};
}

constexpr const char* kWriteBackColumns =
    "SELECT layer_path, revision, content_hash, size, modified_ns, inode, pending_revision, "
    "pending_hash FROM write_backs ";

StoreStatus storeWriteBack(StoreConnection& connection, const std::string& workspace,
                           const WrittenFile& written) {
  // A replacement under way for this content (or an older one) is over once the file holds it.
  Query upsert(connection,
               "INSERT INTO write_backs (workspace, layer_path, revision, content_hash, size, "
               "modified_ns, inode, pending_revision, pending_hash) VALUES (?, ?, ?, ?, ?, ?, ?, "
               "0, '') ON CONFLICT (workspace, layer_path) DO UPDATE SET "
               "revision = excluded.revision, content_hash = excluded.content_hash, "
               "size = excluded.size, modified_ns = excluded.modified_ns, inode = excluded.inode, "
               "pending_revision = CASE WHEN pending_revision <= excluded.revision THEN 0 "
               "ELSE pending_revision END, "
               "pending_hash = CASE WHEN pending_revision <= excluded.revision THEN '' "
               "ELSE pending_hash END");
  if (!upsert.ok())
    return connection.failure("cannot record the write-back of " + written.path);
  // A file that is gone is stored with size -1.
  const std::int64_t size =
      written.stamp.exists ? static_cast<std::int64_t>(written.stamp.size) : -1;
  upsert.bind(1, workspace)
      .bind(2, written.path)
      .bindRevision(3, written.revision)
      .bind(4, written.contentHash)
      .bind(5, size)
      .bind(6, written.stamp.modifiedNanoseconds)
      .bind(7, static_cast<std::int64_t>(written.stamp.inode));
  if (!upsert.done())
    return connection.failure("cannot record the write-back of " + written.path);
  return editor::Unit{};
}

// The scene's muted layers become exactly `mutes.mutedLayers`; inside the caller's transaction.
StoreStatus replaceMutedLayers(StoreConnection& connection, const std::string& workspace,
                               const SceneMutes& mutes) {
  {
    Query clear(connection, "DELETE FROM muted_layers WHERE workspace = ? AND scene = ?");
    if (!clear.ok() || !clear.bind(1, workspace).bind(2, mutes.scene).done())
      return connection.failure("cannot record the muted layers of " + mutes.scene);
  }
  const std::set<std::string> layers(mutes.mutedLayers.begin(), mutes.mutedLayers.end());
  Query insert(connection,
               "INSERT INTO muted_layers (workspace, scene, layer_path) VALUES (?, ?, ?)");
  if (!insert.ok())
    return connection.failure("cannot record the muted layers of " + mutes.scene);
  for (const std::string& layer : layers) {
    if (!insert.bind(1, workspace).bind(2, mutes.scene).bind(3, layer).done())
      return connection.failure("cannot record the muted layers of " + mutes.scene);
    insert.rearm();
  }
  return editor::Unit{};
}

StoreStatus checkWorkspace(const std::string& workspace) {
  if (workspace.empty())
    return StoreError{"a workspace needs a name"};
  return editor::Unit{};
}

}  // namespace

StoreResult<std::unique_ptr<ProjectStore>> ProjectStore::open(const std::string& path) {
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  std::error_code error;
  if (!parent.empty())
    std::filesystem::create_directories(parent, error);
  if (error)
    return StoreError{"cannot create the folder of the store " + path + ": " + error.message()};
  auto connection = std::make_unique<StoreConnection>();
  const int opened = sqlite3_open_v2(path.c_str(), &connection->db,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (opened != SQLITE_OK)
    return connection->failure("cannot open the store " + path);
  sqlite3_busy_timeout(connection->db, kBusyTimeoutMilliseconds);
  sqlite3_extended_result_codes(connection->db, 1);
  {
    Query mode(*connection, "PRAGMA journal_mode=WAL");
    if (!mode.ok() || mode.step() != SQLITE_ROW || mode.text(0) != "wal")
      return connection->failure("cannot put the store " + path + " in write-ahead mode");
  }
  // FULL syncs the log on every commit: a revision is on the disk when appendRevision returns.
  // The log is cut back after checkpoints so that a large blob does not leave it large.
  auto setup = connection->execute(
      "PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON; PRAGMA journal_size_limit=67108864;");
  if (!setup)
    return StoreError{"cannot set up the store " + path + ": " + setup.error().message};
  {
    Query version(*connection, "PRAGMA user_version");
    if (!version.ok() || version.step() != SQLITE_ROW)
      return connection->failure("cannot read the store " + path);
    if (version.integer(0) > kSchemaVersion)
      return StoreError{"the store " + path + " was made by a newer version (schema " +
                        std::to_string(version.integer(0)) + ")"};
  }
  const std::string schema = std::string("BEGIN IMMEDIATE;") + kSchema +
                             "PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";COMMIT;";
  auto created = connection->execute(schema.c_str());
  if (!created) {
    connection->execute("ROLLBACK");
    return StoreError{"cannot set up the store " + path + ": " + created.error().message};
  }
  ::chmod(path.c_str(), 0600);
  return std::unique_ptr<ProjectStore>(new ProjectStore(std::move(connection), path));
}

ProjectStore::ProjectStore(std::unique_ptr<StoreConnection> connection, std::string path)
    : connection_(std::move(connection)), path_(std::move(path)) {}

ProjectStore::~ProjectStore() = default;

StoreResult<std::vector<std::string>> ProjectStore::workspaces() {
  const std::lock_guard lock(mutex_);
  Query rows(*connection_,
             "SELECT name FROM workspaces UNION SELECT workspace FROM snapshots "
             "UNION SELECT workspace FROM write_backs ORDER BY 1");
  if (!rows.ok())
    return connection_->failure("cannot list the workspaces");
  std::vector<std::string> names;
  int status = SQLITE_ROW;
  while ((status = rows.step()) == SQLITE_ROW)
    names.push_back(rows.text(0));
  if (status != SQLITE_DONE)
    return connection_->failure("cannot list the workspaces");
  return names;
}

StoreResult<std::uint64_t> ProjectStore::headRevision(const std::string& workspace) {
  const std::lock_guard lock(mutex_);
  return readHead(*connection_, workspace);
}

StoreResult<std::uint64_t> ProjectStore::appendRevision(const NewRevision& revision) {
  if (auto valid = checkWorkspace(revision.workspace); !valid)
    return valid.error();
  const std::lock_guard lock(mutex_);
  StoreConnection& connection = *connection_;
  Transaction transaction(connection);
  if (!transaction.began())
    return connection.failure("cannot record the revision");
  const auto head = readHead(connection, revision.workspace);
  if (!head)
    return head.error();
  if (*head >= kLargestRevision)
    return StoreError{"the workspace " + revision.workspace + " has no revision numbers left"};
  const std::uint64_t next = *head + 1;
  {
    Query advance(connection,
                  "INSERT INTO workspaces (name, head) VALUES (?, ?) "
                  "ON CONFLICT (name) DO UPDATE SET head = excluded.head");
    if (!advance.ok() || !advance.bind(1, revision.workspace).bindRevision(2, next).done())
      return connection.failure("cannot record the revision");
  }
  {
    Query insert(connection,
                 "INSERT INTO revisions (workspace, revision, author, client_id, label, time_ms, "
                 "change_set) VALUES (?, ?, ?, ?, ?, ?, ?)");
    const std::int64_t time =
        revision.timeMilliseconds != 0 ? revision.timeMilliseconds : nowMilliseconds();
    if (!insert.ok() || !insert.bind(1, revision.workspace)
                             .bindRevision(2, next)
                             .bind(3, revision.author)
                             .bind(4, revision.clientId)
                             .bind(5, revision.label)
                             .bind(6, time)
                             .bind(7, revision.changeSetText)
                             .done())
      return connection.failure("cannot record the revision");
  }
  const std::set<std::string> layerPaths(revision.layerPaths.begin(), revision.layerPaths.end());
  for (const std::string& layerPath : layerPaths) {
    Query insert(connection,
                 "INSERT INTO revision_layers (workspace, revision, layer_path) VALUES (?, ?, ?)");
    if (!insert.ok() ||
        !insert.bind(1, revision.workspace).bindRevision(2, next).bind(3, layerPath).done())
      return connection.failure("cannot record the revision");
  }
  if (revision.mutes) {
    if (auto kept = replaceMutedLayers(connection, revision.workspace, *revision.mutes); !kept)
      return kept.error();
  }
  if (!transaction.commit())
    return connection.failure("cannot record the revision");
  return next;
}

StoreResult<std::vector<std::string>> ProjectStore::mutedLayers(const std::string& workspace,
                                                                const std::string& scene) {
  const std::lock_guard lock(mutex_);
  Query rows(*connection_,
             "SELECT layer_path FROM muted_layers WHERE workspace = ? AND scene = ? "
             "ORDER BY layer_path");
  if (!rows.ok())
    return connection_->failure("cannot read the muted layers");
  rows.bind(1, workspace).bind(2, scene);
  std::vector<std::string> layers;
  int status = SQLITE_ROW;
  while ((status = rows.step()) == SQLITE_ROW)
    layers.push_back(rows.text(0));
  if (status != SQLITE_DONE)
    return connection_->failure("cannot read the muted layers");
  return layers;
}

StoreStatus ProjectStore::recordMutedLayers(const std::string& workspace, const SceneMutes& mutes) {
  if (auto valid = checkWorkspace(workspace); !valid)
    return valid;
  const std::lock_guard lock(mutex_);
  Transaction transaction(*connection_);
  if (!transaction.began())
    return connection_->failure("cannot record the muted layers of " + mutes.scene);
  if (auto kept = replaceMutedLayers(*connection_, workspace, mutes); !kept)
    return kept;
  if (!transaction.commit())
    return connection_->failure("cannot record the muted layers of " + mutes.scene);
  return editor::Unit{};
}

StoreResult<std::vector<StoredRevision>> ProjectStore::revisions(const std::string& workspace,
                                                                 std::uint64_t afterRevision,
                                                                 std::uint64_t limit) {
  const std::lock_guard lock(mutex_);
  return readRevisions(*connection_, workspace, afterRevision, kLargestRevision, limit);
}

StoreResult<std::vector<StoredRevision>> ProjectStore::latestRevisions(const std::string& workspace,
                                                                       std::uint64_t limit) {
  const std::lock_guard lock(mutex_);
  const auto head = readHead(*connection_, workspace);
  if (!head)
    return head.error();
  const std::uint64_t after = *head > limit ? *head - limit : 0;
  return readRevisions(*connection_, workspace, after, *head, limit);
}

StoreResult<std::optional<StoredRevision>> ProjectStore::revision(const std::string& workspace,
                                                                  std::uint64_t number) {
  if (number == 0)
    return std::optional<StoredRevision>();
  const std::lock_guard lock(mutex_);
  auto found = readRevisions(*connection_, workspace, number - 1, number, 1);
  if (!found)
    return found.error();
  if (found->empty())
    return std::optional<StoredRevision>();
  return std::optional<StoredRevision>(std::move(found->front()));
}

StoreResult<std::vector<StoredRevision>> ProjectStore::revisionsAfter(
    const std::string& workspace, std::uint64_t afterRevision, std::uint64_t throughRevision) {
  const std::lock_guard lock(mutex_);
  return readRevisions(*connection_, workspace, afterRevision, throughRevision, kNoLimit);
}

StoreResult<std::uint64_t> ProjectStore::lastRevisionTouching(const std::string& workspace,
                                                              const std::string& layerPath,
                                                              std::uint64_t atOrBefore) {
  const std::lock_guard lock(mutex_);
  Query last(*connection_,
             "SELECT MAX(revision) FROM revision_layers WHERE workspace = ? AND layer_path = ? "
             "AND revision <= ?");
  if (!last.ok())
    return connection_->failure("cannot read the revisions");
  last.bind(1, workspace).bind(2, layerPath).bindRevision(3, atOrBefore);
  if (last.step() != SQLITE_ROW)
    return connection_->failure("cannot read the revisions");
  return last.revision(0);
}

StoreResult<std::string> ProjectStore::putBlob(std::string_view content) {
  const std::lock_guard lock(mutex_);
  Transaction transaction(*connection_);
  if (!transaction.began())
    return connection_->failure("cannot store a blob");
  auto hash = storeBlob(*connection_, content);
  if (!hash)
    return hash;
  if (!transaction.commit())
    return connection_->failure("cannot store a blob");
  return hash;
}

StoreResult<std::optional<std::string>> ProjectStore::blob(const std::string& hash) {
  const std::lock_guard lock(mutex_);
  Query size(*connection_, "SELECT size FROM blobs WHERE hash = ?");
  if (!size.ok())
    return connection_->failure("cannot read a blob");
  size.bind(1, hash);
  const int status = size.step();
  if (status == SQLITE_DONE)
    return std::optional<std::string>();
  if (status != SQLITE_ROW)
    return connection_->failure("cannot read a blob");
  std::string content;
  content.reserve(static_cast<std::size_t>(size.integer(0)));
  Query pieces(*connection_, "SELECT bytes FROM blob_pieces WHERE hash = ? ORDER BY piece");
  if (!pieces.ok())
    return connection_->failure("cannot read a blob");
  pieces.bind(1, hash);
  int step = SQLITE_ROW;
  while ((step = pieces.step()) == SQLITE_ROW)
    content += pieces.bytes(0);
  if (step != SQLITE_DONE)
    return connection_->failure("cannot read a blob");
  if (content.size() != static_cast<std::size_t>(size.integer(0)))
    return StoreError{"the blob " + hash + " is incomplete in the store"};
  return std::optional<std::string>(std::move(content));
}

StoreResult<bool> ProjectStore::hasBlob(const std::string& hash) {
  const std::lock_guard lock(mutex_);
  Query known(*connection_, "SELECT 1 FROM blobs WHERE hash = ?");
  if (!known.ok())
    return connection_->failure("cannot read a blob");
  known.bind(1, hash);
  return known.step() == SQLITE_ROW;
}

StoreStatus ProjectStore::snapshot(const std::string& workspace, std::uint64_t revision,
                                   const std::map<std::string, std::string>& blobHashByPath) {
  if (auto valid = checkWorkspace(workspace); !valid)
    return valid;
  const std::lock_guard lock(mutex_);
  Transaction transaction(*connection_);
  if (!transaction.began())
    return connection_->failure("cannot record the snapshot");
  const auto head = readHead(*connection_, workspace);
  if (!head)
    return head.error();
  if (revision > *head)
    return StoreError{"cannot record a snapshot at revision " + std::to_string(revision) + " of " +
                      workspace + ": its head is " + std::to_string(*head)};
  if (auto recorded = recordSnapshot(*connection_, workspace, revision, blobHashByPath); !recorded)
    return recorded;
  if (!transaction.commit())
    return connection_->failure("cannot record the snapshot");
  return editor::Unit{};
}

StoreStatus ProjectStore::snapshotContents(
    const std::string& workspace, std::uint64_t revision,
    const std::map<std::string, std::string>& contentByPath) {
  if (auto valid = checkWorkspace(workspace); !valid)
    return valid;
  const std::lock_guard lock(mutex_);
  Transaction transaction(*connection_);
  if (!transaction.began())
    return connection_->failure("cannot record the snapshot");
  const auto head = readHead(*connection_, workspace);
  if (!head)
    return head.error();
  if (revision > *head)
    return StoreError{"cannot record a snapshot at revision " + std::to_string(revision) + " of " +
                      workspace + ": its head is " + std::to_string(*head)};
  std::map<std::string, std::string> hashes;
  for (const auto& [path, content] : contentByPath) {
    auto hash = storeBlob(*connection_, content);
    if (!hash)
      return hash.error();
    hashes.emplace(path, std::move(*hash));
  }
  if (auto recorded = recordSnapshot(*connection_, workspace, revision, hashes); !recorded)
    return recorded;
  if (!transaction.commit())
    return connection_->failure("cannot record the snapshot");
  return editor::Unit{};
}

StoreResult<std::vector<LayerSnapshot>> ProjectStore::snapshotAtOrBefore(
    const std::string& workspace, std::uint64_t revision) {
  const std::lock_guard lock(mutex_);
  // With MAX() the other columns come from the row that holds the maximum.
  Query rows(*connection_,
             "SELECT layer_path, MAX(revision), blob_hash FROM snapshots "
             "WHERE workspace = ? AND revision <= ? GROUP BY layer_path ORDER BY layer_path");
  if (!rows.ok())
    return connection_->failure("cannot read the snapshots");
  rows.bind(1, workspace).bindRevision(2, revision);
  std::vector<LayerSnapshot> layers;
  int status = SQLITE_ROW;
  while ((status = rows.step()) == SQLITE_ROW)
    layers.push_back(LayerSnapshot{
        .path = rows.text(0), .revision = rows.revision(1), .blobHash = rows.text(2)});
  if (status != SQLITE_DONE)
    return connection_->failure("cannot read the snapshots");
  return layers;
}

StoreStatus ProjectStore::recordWriteIntent(const std::string& workspace, const std::string& path,
                                            std::uint64_t revision,
                                            const std::string& contentHash) {
  const std::lock_guard lock(mutex_);
  Query upsert(*connection_,
               "INSERT INTO write_backs (workspace, layer_path, revision, content_hash, size, "
               "modified_ns, inode, pending_revision, pending_hash) VALUES (?, ?, 0, '', -1, 0, "
               "0, ?, ?) ON CONFLICT (workspace, layer_path) DO UPDATE SET "
               "pending_revision = excluded.pending_revision, "
               "pending_hash = excluded.pending_hash");
  if (!upsert.ok() || !upsert.bind(1, workspace)
                           .bind(2, path)
                           .bindRevision(3, revision)
                           .bind(4, contentHash)
                           .done())
    return connection_->failure("cannot record the write-back of " + path);
  return editor::Unit{};
}

StoreStatus ProjectStore::recordWriteBack(const std::string& workspace,
                                          const WrittenFile& written) {
  const std::lock_guard lock(mutex_);
  return storeWriteBack(*connection_, workspace, written);
}

StoreStatus ProjectStore::recordWriteBack(
    const std::string& workspace, std::uint64_t revision,
    const std::map<std::string, std::string>& contentHashByPath) {
  const std::lock_guard lock(mutex_);
  Transaction transaction(*connection_);
  if (!transaction.began())
    return connection_->failure("cannot record the write-back");
  for (const auto& [path, hash] : contentHashByPath) {
    const WrittenFile written{
        .path = path, .revision = revision, .contentHash = hash, .stamp = stampOf(path)};
    if (auto stored = storeWriteBack(*connection_, workspace, written); !stored)
      return stored;
  }
  if (!transaction.commit())
    return connection_->failure("cannot record the write-back");
  return editor::Unit{};
}

StoreResult<bool> ProjectStore::refreshWriteBackStamp(const std::string& workspace,
                                                      const std::string& path,
                                                      std::uint64_t revision,
                                                      const std::string& contentHash,
                                                      const FileStamp& stamp) {
  const std::lock_guard lock(mutex_);
  Query update(*connection_,
               "UPDATE write_backs SET size = ?, modified_ns = ?, inode = ? WHERE workspace = ? "
               "AND layer_path = ? AND revision = ? AND content_hash = ? AND pending_hash = ''");
  if (!update.ok())
    return connection_->failure("cannot record the write-back of " + path);
  update.bind(1, stamp.exists ? static_cast<std::int64_t>(stamp.size) : -1)
      .bind(2, stamp.modifiedNanoseconds)
      .bind(3, static_cast<std::int64_t>(stamp.inode))
      .bind(4, workspace)
      .bind(5, path)
      .bindRevision(6, revision)
      .bind(7, contentHash);
  if (!update.done())
    return connection_->failure("cannot record the write-back of " + path);
  return sqlite3_changes(connection_->db) > 0;
}

StoreResult<std::optional<WriteBackRecord>> ProjectStore::writeBack(const std::string& workspace,
                                                                    const std::string& path) {
  const std::lock_guard lock(mutex_);
  static const std::string sql =
      std::string(kWriteBackColumns) + "WHERE workspace = ? AND layer_path = ?";
  Query row(*connection_, sql.c_str());
  if (!row.ok())
    return connection_->failure("cannot read the write-backs");
  row.bind(1, workspace).bind(2, path);
  const int status = row.step();
  if (status == SQLITE_DONE)
    return std::optional<WriteBackRecord>();
  if (status != SQLITE_ROW)
    return connection_->failure("cannot read the write-backs");
  return std::optional<WriteBackRecord>(writeBackAt(row));
}

StoreResult<std::vector<WriteBackRecord>> ProjectStore::writeBacks(const std::string& workspace) {
  const std::lock_guard lock(mutex_);
  static const std::string sql =
      std::string(kWriteBackColumns) + "WHERE workspace = ? ORDER BY layer_path";
  Query rows(*connection_, sql.c_str());
  if (!rows.ok())
    return connection_->failure("cannot read the write-backs");
  rows.bind(1, workspace);
  std::vector<WriteBackRecord> records;
  int status = SQLITE_ROW;
  while ((status = rows.step()) == SQLITE_ROW)
    records.push_back(writeBackAt(rows));
  if (status != SQLITE_DONE)
    return connection_->failure("cannot read the write-backs");
  return records;
}

}  // namespace orvan::engine
