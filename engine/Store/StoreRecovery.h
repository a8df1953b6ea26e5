#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Store/FileStamp.h"
#include "Store/ProjectStore.h"

namespace orvan::engine {

// Whether a live file still holds what the server wrote there.
enum class LiveFileState {
  kUnchanged,
  kChanged,  // someone else wrote it: `content` is what it holds now
  kMissing,  // it is gone
};

struct LiveFileCheck {
  LiveFileState state = LiveFileState::kUnchanged;
  std::string content = {};  // for kChanged
  std::string contentHash = {};
  FileStamp stamp = {};
};

// Compares a live file with its write-back record: the stamp first (equal stamps are taken as
// unchanged without reading a byte), then the content hash against both the written content and
// a replacement under way. The content hash is empty when the stamp sufficed.
StoreResult<LiveFileCheck> checkLiveFile(const WriteBackRecord& record, const std::string& path);

// checkLiveFile against the store's record, read again after the file was hashed, so a write-back
// that lands during the check is not taken for a change by someone else. A file found unchanged
// under a new stamp gets that stamp recorded, so the next check needs no read. A file the store
// has no record of counts as changed.
// Paths in the store may be relative to a folder (the project's, so the history holds when the
// folder moves): `folder` is where they are found on the disk, empty when they are absolute.
StoreResult<LiveFileCheck> detectExternalChange(ProjectStore& store, const std::string& workspace,
                                                const std::string& path,
                                                const std::string& folder = {});

// What to do with one live file when the server starts.
enum class RecoveryAction {
  kUpToDate,  // the file holds the newest revision that changed it
  kReplay,    // the file holds `baseRevision`: apply the revisions after it that changed the file
  // The file holds neither what the server wrote nor what it was about to write: it was changed
  // while the server was down. The accepted edits stay: the file is rebuilt from its newest
  // snapshot and the revisions after it, and the content on disk then becomes one more revision,
  // by "external", that replaces the whole layer; the edits it overwrote remain in the history.
  kExternalChange,
  kMissing,    // the file is gone: it is rebuilt from its snapshot and the revisions after it
  kUntracked,  // the server never wrote it: what is on disk is where it starts (and is snapshotted)
};

struct LayerRecovery {
  std::string path = {};
  RecoveryAction action = RecoveryAction::kUntracked;
  std::uint64_t baseRevision = 0;  // the revision the file on disk reflects (kUpToDate, kReplay)
  std::uint64_t lastRevision = 0;  // the newest revision that changed the file
  std::string diskHash = {};

  bool operator==(const LayerRecovery&) const = default;
};

// The decision for one file from its record, the hash of what the disk holds (none when the file
// is missing), the newest revision that changed it and its newest snapshot. A file whose content
// is that of its snapshot is at the snapshot's revision, whatever the record says: that covers a
// file the server had snapshotted when it first saw it and crashed before its first write-back.
LayerRecovery planLayerRecovery(const std::string& path,
                                const std::optional<WriteBackRecord>& record,
                                const std::optional<std::string>& diskHash,
                                std::uint64_t lastRevision,
                                const std::optional<LayerSnapshot>& snapshot = std::nullopt);

// planLayerRecovery for every file the workspace has a write-back record or a snapshot of, and for
// `alsoPaths` (the layers of the scenes the server opens), sorted by path.
StoreResult<std::vector<LayerRecovery>> planRecovery(ProjectStore& store,
                                                     const std::string& workspace,
                                                     const std::vector<std::string>& alsoPaths = {},
                                                     const std::string& folder = {});
// Where a path of the store is on the disk.
std::string fileOf(const std::string& folder, const std::string& path);

// When a layer deserves a new snapshot: replaying stays cheap next to reading the file, and a
// large file is not stored again on every edit.
struct SnapshotPolicy {
  std::uint64_t maxRevisions = 500;
  std::uint64_t minChangeBytes = 256 * 1024;
  double maxChangeRatio = 0.5;  // change-set bytes since the snapshot per byte of the file
};
bool snapshotDue(const SnapshotPolicy& policy, std::uint64_t revisionsSinceSnapshot,
                 std::uint64_t changeBytesSinceSnapshot, std::uint64_t fileBytes);

}  // namespace orvan::engine
