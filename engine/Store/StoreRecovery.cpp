#include "Store/StoreRecovery.h"

#include <algorithm>
#include <set>

#include "Store/ContentHash.h"

namespace orvan::engine {
namespace {

bool holdsRecordedContent(const WriteBackRecord& record, const std::string& hash) {
  return (!record.contentHash.empty() && hash == record.contentHash) ||
         (!record.pendingHash.empty() && hash == record.pendingHash);
}

}  // namespace

std::string fileOf(const std::string& folder, const std::string& path) {
  return folder.empty() || path.starts_with('/') ? path : folder + '/' + path;
}

StoreResult<LiveFileCheck> checkLiveFile(const WriteBackRecord& record, const std::string& path) {
  const FileStamp stamp = stampOf(path);
  if (!stamp.exists)
    return LiveFileCheck{.state = LiveFileState::kMissing};
  if (record.stamp.exists && stamp == record.stamp)
    return LiveFileCheck{.state = LiveFileState::kUnchanged, .stamp = stamp};
  auto content = readFileText(path);
  if (!content)
    return content.error();
  std::string hash = contentHash(*content);
  if (holdsRecordedContent(record, hash))
    return LiveFileCheck{
        .state = LiveFileState::kUnchanged, .contentHash = std::move(hash), .stamp = stamp};
  return LiveFileCheck{.state = LiveFileState::kChanged,
                       .content = std::move(*content),
                       .contentHash = std::move(hash),
                       .stamp = stamp};
}

StoreResult<LiveFileCheck> detectExternalChange(ProjectStore& store, const std::string& workspace,
                                                const std::string& path,
                                                const std::string& folder) {
  const auto before = store.writeBack(workspace, path);
  if (!before)
    return before.error();
  auto check = checkLiveFile(before->value_or(WriteBackRecord{.path = path}), fileOf(folder, path));
  if (!check || check->state == LiveFileState::kMissing || check->contentHash.empty())
    return check;
  // The file was read. The writer records a replacement before it renames it into place, so a
  // record read after the file was hashed knows any content the writer put there.
  const auto after = store.writeBack(workspace, path);
  if (!after)
    return after.error();
  if (!*after || !holdsRecordedContent(**after, check->contentHash))
    return check;
  LiveFileCheck unchanged{
      .state = LiveFileState::kUnchanged, .contentHash = check->contentHash, .stamp = check->stamp};
  if ((*after)->contentHash == unchanged.contentHash) {
    const auto refreshed = store.refreshWriteBackStamp(workspace, path, (*after)->revision,
                                                       unchanged.contentHash, unchanged.stamp);
    if (!refreshed)
      return refreshed.error();
  }
  return unchanged;
}

LayerRecovery planLayerRecovery(const std::string& path,
                                const std::optional<WriteBackRecord>& record,
                                const std::optional<std::string>& diskHash,
                                std::uint64_t lastRevision,
                                const std::optional<LayerSnapshot>& snapshot) {
  LayerRecovery plan{.path = path, .lastRevision = lastRevision, .diskHash = diskHash.value_or("")};
  const bool tracked = record || snapshot;
  if (!diskHash) {
    plan.action = tracked ? RecoveryAction::kMissing : RecoveryAction::kUntracked;
    return plan;
  }
  if (!tracked) {
    plan.action = RecoveryAction::kUntracked;
    return plan;
  }
  // Several may match (an edit and its undo give the same text): the newest revision is the one
  // to replay from, and equal contents replay to the same result from any of them.
  std::uint64_t base = 0;
  bool known = false;
  const auto match = [&](const std::string& hash, std::uint64_t revision) {
    if (hash.empty() || hash != *diskHash)
      return;
    base = std::max(base, revision);
    known = true;
  };
  if (record) {
    match(record->contentHash, record->revision);
    match(record->pendingHash, record->pendingRevision);
  }
  if (snapshot)
    match(snapshot->blobHash, snapshot->revision);
  if (!known) {
    plan.action = RecoveryAction::kExternalChange;
    plan.baseRevision = record ? record->revision : 0;
    return plan;
  }
  plan.baseRevision = base;
  plan.action = lastRevision > base ? RecoveryAction::kReplay : RecoveryAction::kUpToDate;
  return plan;
}

StoreResult<std::vector<LayerRecovery>> planRecovery(ProjectStore& store,
                                                     const std::string& workspace,
                                                     const std::vector<std::string>& alsoPaths,
                                                     const std::string& folder) {
  const auto records = store.writeBacks(workspace);
  if (!records)
    return records.error();
  const auto snapshots = store.snapshotAtOrBefore(workspace, ProjectStore::kNoLimit);
  if (!snapshots)
    return snapshots.error();
  std::set<std::string> paths(alsoPaths.begin(), alsoPaths.end());
  for (const WriteBackRecord& record : *records)
    paths.insert(record.path);
  for (const LayerSnapshot& snapshot : *snapshots)
    paths.insert(snapshot.path);
  std::vector<LayerRecovery> plans;
  for (const std::string& path : paths) {
    const auto found =
        std::find_if(records->begin(), records->end(),
                     [&](const WriteBackRecord& record) { return record.path == path; });
    const std::optional<WriteBackRecord> record =
        found == records->end() ? std::nullopt : std::optional<WriteBackRecord>(*found);
    const auto layer = std::find_if(snapshots->begin(), snapshots->end(),
                                    [&](const LayerSnapshot& each) { return each.path == path; });
    const std::optional<LayerSnapshot> snapshot =
        layer == snapshots->end() ? std::nullopt : std::optional<LayerSnapshot>(*layer);
    // A file whose stamp is the recorded one is the recorded file (a replacement brings a new
    // inode): a large project starts without reading every layer.
    const FileStamp stamp = stampOf(fileOf(folder, path));
    std::optional<std::string> diskHash;
    if (record && record->stamp.exists && stamp == record->stamp && !record->contentHash.empty()) {
      diskHash = record->contentHash;
    } else if (stamp.exists) {
      auto hash = contentHashOfFile(fileOf(folder, path));
      if (!hash)
        return hash.error();
      diskHash = std::move(*hash);
    }
    const auto last = store.lastRevisionTouching(workspace, path);
    if (!last)
      return last.error();
    plans.push_back(planLayerRecovery(path, record, diskHash, *last, snapshot));
  }
  return plans;
}

bool snapshotDue(const SnapshotPolicy& policy, std::uint64_t revisionsSinceSnapshot,
                 std::uint64_t changeBytesSinceSnapshot, std::uint64_t fileBytes) {
  if (revisionsSinceSnapshot == 0)
    return false;
  if (revisionsSinceSnapshot >= policy.maxRevisions)
    return true;
  const auto proportional =
      static_cast<std::uint64_t>(static_cast<double>(fileBytes) * policy.maxChangeRatio);
  return changeBytesSinceSnapshot >= std::max(policy.minChangeBytes, proportional);
}

}  // namespace orvan::engine
