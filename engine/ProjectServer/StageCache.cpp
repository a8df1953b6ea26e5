#include "ProjectServer/StageCache.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <set>
#include <system_error>

#include "Inspector/StageInspector.h"
#include "ProjectServer/Digest.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

// Entries remember the digest of their last stage even when the stage itself was dropped; this
// bounds how many such small entries stay.
constexpr std::size_t kMaxEntries = 256;
// A file written this shortly before it was read may change again within the same tick of the
// file system's clock without its signature showing it; such a stage is served but not kept.
constexpr std::chrono::seconds kSettleTime{1};

bool filesUnchanged(const InspectedStage& stage) {
  return std::all_of(stage.files.begin(), stage.files.end(),
                     [](const FileSignature& file) { return signatureOf(file.path) == file; });
}

bool filesSettledBefore(const InspectedStage& stage,
                        std::chrono::system_clock::time_point readStart) {
  const std::int64_t limit = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 (readStart - kSettleTime).time_since_epoch())
                                 .count();
  return std::all_of(stage.files.begin(), stage.files.end(), [limit](const FileSignature& file) {
    return !file.exists || file.modifiedNanoseconds < limit;
  });
}

}  // namespace

StageCache::Built StageCache::build(const std::string& scenePath, const std::string& activeLayer,
                                    const std::string& projectRoot) const {
  const auto readStart = std::chrono::system_clock::now();
  const StageOpenResult opened = openStage(
      scenePath, ComposeOptions{.limits = limits_.compose, .confinementRoot = projectRoot});
  if (!opened.ok())
    return Built{.stage = nullptr, .failure = *opened.error};

  auto stage = std::make_shared<InspectedStage>();
  const InspectOptions inspect{
      .activeLayer = activeLayer, .sceneUri = {}, .maxOutputBytes = limits_.maxOutputBytes};
  std::optional<std::string> refused = writeInspectionJson(*opened.stage, inspect, stage->json);
  if (refused && !activeLayer.empty()) {
    stage->json.clear();
    refused = writeInspectionJson(
        *opened.stage, InspectOptions{.maxOutputBytes = limits_.maxOutputBytes}, stage->json);
  }
  if (refused)
    return Built{.stage = nullptr, .failure = ReadError{.file = scenePath, .message = *refused}};
  stage->digest = fnv1a64(stage->json);

  std::set<std::string> seen;
  for (const StageLayer& layer : opened.stage->layers) {
    if (seen.insert(layer.identifier).second)
      stage->files.push_back(signatureOf(layer.identifier));
  }
  const bool settled = filesSettledBefore(*stage, readStart);
  return Built{.stage = std::move(stage), .failure = std::nullopt, .keep = settled};
}

StageCache::Lookup StageCache::stage(const std::string& scenePath, const std::string& activeLayer,
                                     const std::string& projectRoot) {
  const std::string key = scenePath + '\n' + activeLayer;
  for (;;) {
    std::shared_ptr<const InspectedStage> kept;
    std::shared_future<Built> pending;
    std::promise<Built> promise;
    {
      const std::lock_guard lock(mutex_);
      Entry& entry = entries_[key];
      entry.lastUsed = ++clock_;
      if (entry.inFlight.valid()) {
        pending = entry.inFlight;
      } else if (entry.kept) {
        kept = entry.kept;
      } else {
        entry.inFlight = promise.get_future().share();
      }
    }
    if (kept) {
      // The files are looked at outside the lock: other scenes need not wait for this one's disk.
      if (filesUnchanged(*kept))
        return Lookup{.stage = kept, .failure = std::nullopt, .revision = revision()};
      const std::lock_guard lock(mutex_);
      if (const auto found = entries_.find(key);
          found != entries_.end() && found->second.kept == kept) {
        found->second.kept.reset();
      }
      continue;
    }
    if (pending.valid()) {
      const Built& built = pending.get();
      return Lookup{.stage = built.stage, .failure = built.failure, .revision = revision()};
    }
    Built built;
    try {
      built = build(scenePath, activeLayer, projectRoot);
    } catch (...) {
      abandon(key);
      promise.set_exception(std::current_exception());
      throw;
    }
    finish(key, built);
    promise.set_value(built);
    return Lookup{.stage = built.stage, .failure = built.failure, .revision = revision()};
  }
}

void StageCache::finish(const std::string& key, const Built& built) {
  const std::lock_guard lock(mutex_);
  Entry& entry = entries_[key];
  entry.inFlight = {};
  if (built.stage) {
    if (entry.lastDigest && *entry.lastDigest != built.stage->digest)
      ++revision_;
    entry.lastDigest = built.stage->digest;
    if (built.keep)
      entry.kept = built.stage;
  }
  evictBeyondCapacity();
}

void StageCache::abandon(const std::string& key) {
  const std::lock_guard lock(mutex_);
  if (const auto found = entries_.find(key); found != entries_.end())
    found->second.inFlight = {};
}

void StageCache::evictBeyondCapacity() {
  std::vector<std::map<std::string, Entry>::iterator> withStage;
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->second.kept)
      withStage.push_back(it);
  }
  const auto older = [](const auto& a, const auto& b) {
    return a->second.lastUsed < b->second.lastUsed;
  };
  std::sort(withStage.begin(), withStage.end(), older);
  for (std::size_t i = 0; i + capacity_ < withStage.size(); ++i)
    withStage[i]->second.kept.reset();

  while (entries_.size() > kMaxEntries) {
    auto oldest = entries_.end();
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (!it->second.inFlight.valid() && (oldest == entries_.end() || older(it, oldest)))
        oldest = it;
    }
    if (oldest == entries_.end())
      return;
    entries_.erase(oldest);
  }
}

std::uint64_t StageCache::revision() const {
  const std::lock_guard lock(mutex_);
  return revision_;
}

}  // namespace orvan::engine
