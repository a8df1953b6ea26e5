#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Store/FileStamp.h"
#include "Store/StoreError.h"

namespace orvan::engine {

struct StoreConnection;

// The layers a workspace leaves out of one scene's composition. Muting is the workspace's state,
// not the files': it is kept beside the revisions, never written into a layer.
struct SceneMutes {
  std::string scene = {};                     // relative to the project folder
  std::vector<std::string> mutedLayers = {};  // relative to the project folder

  bool operator==(const SceneMutes&) const = default;
};

// One accepted edit as the server hands it over. The change set is opaque here: whatever text the
// edit logic made of the prim-level before and after of the edit.
struct NewRevision {
  std::string workspace = {};
  std::string author = {};
  std::string clientId = {};
  std::string label = {};
  std::int64_t timeMilliseconds = 0;  // since the Unix epoch; 0 takes the current time
  std::string changeSetText = {};
  std::vector<std::string> layerPaths = {};  // the layer files the edit changed
  // Set when the edit changed which layers the scene leaves out: its whole new set, recorded with
  // the revision so the two never disagree.
  std::optional<SceneMutes> mutes = {};
};

struct StoredRevision {
  std::string workspace = {};
  std::uint64_t revision = 0;
  std::string author = {};
  std::string clientId = {};
  std::string label = {};
  std::int64_t timeMilliseconds = 0;
  std::string changeSetText = {};
  std::vector<std::string> layerPaths = {};  // sorted, each once

  bool operator==(const StoredRevision&) const = default;
};

// The full content of one layer file at one revision, kept as a blob.
struct LayerSnapshot {
  std::string path = {};
  std::uint64_t revision = 0;
  std::string blobHash = {};

  bool operator==(const LayerSnapshot&) const = default;
};

// A live file the writer has put on the disk: the revision its content reflects.
struct WrittenFile {
  std::string path = {};
  std::uint64_t revision = 0;
  std::string contentHash = {};
  FileStamp stamp = {};
};

// What the store knows of a live file. `pendingRevision` and `pendingHash` describe a replacement
// that was about to be renamed into place; after a crash the file on disk holds either that or the
// written content, and either one tells which revision it reflects.
struct WriteBackRecord {
  std::string path = {};
  std::uint64_t revision = 0;
  std::string contentHash = {};  // empty: nothing written yet
  FileStamp stamp = {};
  std::uint64_t pendingRevision = 0;
  std::string pendingHash = {};  // empty: no replacement under way

  bool operator==(const WriteBackRecord&) const = default;
};

// The project server's versioned store: one SQLite file (write-ahead log, every commit synced)
// holding per workspace the revision log, content-addressed blobs, snapshots of whole layer files
// and what each live file on disk holds. Every accepted edit becomes revision head + 1 of its
// workspace; a revision is durable when `appendRevision` returns, so it survives the process being
// killed and the machine losing power at any moment after. The head never goes back, across
// restarts too, so one number never names two states. Every method may be called from any thread;
// calls are serialised on one connection.
class ProjectStore {
 public:
  static constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

  // Opens or creates the store file (and its folder).
  static StoreResult<std::unique_ptr<ProjectStore>> open(const std::string& path);
  ~ProjectStore();
  ProjectStore(const ProjectStore&) = delete;
  ProjectStore& operator=(const ProjectStore&) = delete;

  const std::string& path() const { return path_; }

  // The workspaces that have a revision, a snapshot or a write-back, sorted.
  StoreResult<std::vector<std::string>> workspaces();
  // The latest revision of a workspace; 0 before its first edit.
  StoreResult<std::uint64_t> headRevision(const std::string& workspace);
  // Records an accepted edit as the next revision and returns its number once it is on the disk.
  StoreResult<std::uint64_t> appendRevision(const NewRevision& revision);

  // The layers a scene of the workspace has muted, sorted; none before its first mute.
  StoreResult<std::vector<std::string>> mutedLayers(const std::string& workspace,
                                                    const std::string& scene);
  // Replaces a scene's muted layers outside any revision: for layers found gone, whose mute means
  // nothing any more.
  StoreStatus recordMutedLayers(const std::string& workspace, const SceneMutes& mutes);

  // History, oldest first: the revisions after `afterRevision`, at most `limit` of them.
  StoreResult<std::vector<StoredRevision>> revisions(const std::string& workspace,
                                                     std::uint64_t afterRevision,
                                                     std::uint64_t limit);
  // The newest `limit` revisions, oldest first (a history page that ends at the head).
  StoreResult<std::vector<StoredRevision>> latestRevisions(const std::string& workspace,
                                                           std::uint64_t limit);
  StoreResult<std::optional<StoredRevision>> revision(const std::string& workspace,
                                                      std::uint64_t number);
  // Every revision after `afterRevision` up to `throughRevision`, oldest first: what is replayed
  // onto a snapshot or onto a live file after a crash.
  StoreResult<std::vector<StoredRevision>> revisionsAfter(const std::string& workspace,
                                                          std::uint64_t afterRevision,
                                                          std::uint64_t throughRevision = kNoLimit);
  // The newest revision at or before `atOrBefore` that changed the layer file; 0 when none did.
  StoreResult<std::uint64_t> lastRevisionTouching(const std::string& workspace,
                                                  const std::string& layerPath,
                                                  std::uint64_t atOrBefore = kNoLimit);

  // Stores a content once under its hash (see contentHash) and gives the hash.
  StoreResult<std::string> putBlob(std::string_view content);
  StoreResult<std::optional<std::string>> blob(const std::string& hash);
  StoreResult<bool> hasBlob(const std::string& hash);

  // Records the full content of layer files at a revision of the workspace (at most its head; 0
  // is the state before the first edit). The blobs must be stored already.
  StoreStatus snapshot(const std::string& workspace, std::uint64_t revision,
                       const std::map<std::string, std::string>& blobHashByPath);
  // Stores the contents as blobs and records the snapshot, in one transaction.
  StoreStatus snapshotContents(const std::string& workspace, std::uint64_t revision,
                               const std::map<std::string, std::string>& contentByPath);
  // For every layer file with a snapshot, the newest one at or before `revision`, sorted by path.
  // The content of a file at `revision` is that blob with the revisions after the snapshot's
  // replayed onto it.
  StoreResult<std::vector<LayerSnapshot>> snapshotAtOrBefore(const std::string& workspace,
                                                             std::uint64_t revision);

  // The writer is about to rename a file with this content into place.
  StoreStatus recordWriteIntent(const std::string& workspace, const std::string& path,
                                std::uint64_t revision, const std::string& contentHash);
  // The live file now holds `written`.
  StoreStatus recordWriteBack(const std::string& workspace, const WrittenFile& written);
  // The same for several files written at one revision, when only their hashes are known (their
  // stamps are then taken from the disk).
  StoreStatus recordWriteBack(const std::string& workspace, std::uint64_t revision,
                              const std::map<std::string, std::string>& contentHashByPath);
  // A file found to hold the recorded content under another stamp (touched, copied back): the new
  // stamp is recorded, unless the record moved on meanwhile. Whether it was recorded.
  StoreResult<bool> refreshWriteBackStamp(const std::string& workspace, const std::string& path,
                                          std::uint64_t revision, const std::string& contentHash,
                                          const FileStamp& stamp);
  StoreResult<std::optional<WriteBackRecord>> writeBack(const std::string& workspace,
                                                        const std::string& path);
  StoreResult<std::vector<WriteBackRecord>> writeBacks(const std::string& workspace);

 private:
  ProjectStore(std::unique_ptr<StoreConnection> connection, std::string path);

  std::mutex mutex_;
  std::unique_ptr<StoreConnection> connection_;
  std::string path_;
};

}  // namespace orvan::engine
