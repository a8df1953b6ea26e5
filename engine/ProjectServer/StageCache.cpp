#include "ProjectServer/StageCache.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <set>
#include <system_error>

#include "Inspector/StageInspector.h"
#include "ProjectServer/Digest.h"
#include "UsdText/StageComposer.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// Inspection slots remember the digest of their last stage even when the stage itself was
// dropped; this bounds how many such small slots stay.
constexpr std::size_t kMaxInspectionSlots = 256;
// A file written this shortly before it was read may change again within the same tick of the
// file system's clock without its signature showing it; such a stage is served but not kept.
constexpr std::chrono::seconds kSettleTime{1};

bool filesUnchanged(const std::vector<FileSignature>& files) {
  return std::all_of(files.begin(), files.end(),
                     [](const FileSignature& file) { return signatureOf(file.path) == file; });
}

bool filesSettledBefore(const std::vector<FileSignature>& files,
                        std::chrono::system_clock::time_point readStart) {
  const std::int64_t limit = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 (readStart - kSettleTime).time_since_epoch())
                                 .count();
  return std::all_of(files.begin(), files.end(), [limit](const FileSignature& file) {
    return !file.exists || file.modifiedNanoseconds < limit;
  });
}

// The identifier of the root-stack layer that `wanted` names, the way the inspector matches it (by
// identifier, absolute path, path relative to the scene's folder or file name); "" for none.
std::string layerNamed(const Stage& stage, const std::string& wanted) {
  if (wanted.empty() || stage.layers.empty())
    return {};
  std::error_code error;
  const std::string absolute = fs::absolute(wanted, error).lexically_normal().string();
  const fs::path folder = fs::path(stage.layers.front().identifier).parent_path();
  for (const StageLayer& layer : stage.layers) {
    if (!layer.inRootLayerStack)
      continue;
    const std::string relative =
        fs::path(layer.identifier).lexically_relative(folder).generic_string();
    if (layer.identifier == wanted || layer.identifier == absolute || relative == wanted ||
        layer.name == wanted) {
      return layer.identifier;
    }
  }
  return {};
}

// Holds one of the cache's build slots for as long as it lives.
class BuildSlot {
 public:
  explicit BuildSlot(std::counting_semaphore<64>& slots) : slots_(slots) { slots_.acquire(); }
  ~BuildSlot() { slots_.release(); }
  BuildSlot(const BuildSlot&) = delete;
  BuildSlot& operator=(const BuildSlot&) = delete;

 private:
  std::counting_semaphore<64>& slots_;
};

// One build per key at a time: the kept value when `fresh` accepts it, else the result of a build
// under way (when `matches` accepts it), else a build of this caller's own, which `finish` files
// under the lock.
template <class T, class Slots, class Fresh, class Matches, class Build, class Finish>
std::shared_ptr<const T> shared(std::mutex& mutex, Slots& slots, const std::string& key,
                                std::uint64_t& clock, const Fresh& fresh, const Matches& matches,
                                const Build& build, const Finish& finish) {
  for (;;) {
    std::shared_ptr<const T> kept;
    std::shared_future<std::shared_ptr<const T>> pending;
    std::promise<std::shared_ptr<const T>> promise;
    {
      const std::lock_guard lock(mutex);
      auto& slot = slots[key];
      slot.lastUsed = ++clock;
      if (slot.inFlight.valid())
        pending = slot.inFlight;
      else if (slot.kept)
        kept = slot.kept;
      else
        slot.inFlight = promise.get_future().share();
    }
    if (kept) {
      // Freshness may look at the disk: outside the lock, so other keys need not wait for it.
      if (fresh(*kept))
        return kept;
      const std::lock_guard lock(mutex);
      if (auto found = slots.find(key); found != slots.end() && found->second.kept == kept)
        found->second.kept.reset();
      continue;
    }
    if (pending.valid()) {
      std::shared_ptr<const T> built = pending.get();
      if (matches(*built))
        return built;
      continue;
    }
    std::shared_ptr<const T> built;
    try {
      built = build();
    } catch (...) {
      {
        const std::lock_guard lock(mutex);
        slots[key].inFlight = {};
      }
      promise.set_exception(std::current_exception());
      throw;
    }
    {
      const std::lock_guard lock(mutex);
      auto& slot = slots[key];
      slot.inFlight = {};
      finish(slot, built);
    }
    promise.set_value(built);
    return built;
  }
}

}  // namespace

StageCache::StageCache(StageCacheOptions options)
    : options_(std::move(options)),
      builds_(
          static_cast<std::ptrdiff_t>(std::clamp<std::size_t>(options_.concurrentBuilds, 1, 64))) {}

std::shared_ptr<const StageCache::Composed> StageCache::compose(const std::string& scenePath,
                                                                const std::string& projectRoot) {
  const BuildSlot slot(builds_);
  if (options_.onBuild)
    options_.onBuild(StageCacheOptions::Build::compose);
  auto composed = std::make_shared<Composed>();
  composed->generation = ++generations_;
  const auto readStart = std::chrono::system_clock::now();
  StageOpenResult opened = openStage(
      scenePath, ComposeOptions{.limits = options_.limits.compose, .confinementRoot = projectRoot});
  if (!opened.ok()) {
    composed->failure = *opened.error;
    return composed;
  }
  std::set<std::string> seen;
  for (const StageLayer& layer : opened.stage->layers) {
    if (seen.insert(layer.identifier).second)
      composed->files.push_back(signatureOf(layer.identifier));
  }
  composed->keep = filesSettledBefore(composed->files, readStart);
  composed->stage = std::move(opened.stage);
  return composed;
}

std::shared_ptr<const StageCache::Inspected> StageCache::inspect(const Composed& composed,
                                                                 const std::string& layer) {
  const BuildSlot slot(builds_);
  if (options_.onBuild)
    options_.onBuild(StageCacheOptions::Build::inspect);
  auto inspected = std::make_shared<Inspected>();
  inspected->generation = composed.generation;
  auto stage = std::make_shared<InspectedStage>();
  const std::optional<std::string> refused = writeInspectionJson(
      *composed.stage,
      InspectOptions{
          .activeLayer = layer, .sceneUri = {}, .maxOutputBytes = options_.limits.maxOutputBytes},
      stage->json);
  if (refused) {
    inspected->failure =
        ReadError{.file = composed.stage->layers.front().identifier, .message = *refused};
    return inspected;
  }
  stage->digest = fnv1a64(stage->json);
  inspected->stage = std::move(stage);
  return inspected;
}

std::shared_ptr<const StageCache::Composed> StageCache::composed(const std::string& scenePath,
                                                                 const std::string& projectRoot) {
  return shared<Composed>(
      mutex_, scenes_, scenePath, clock_,
      [](const Composed& kept) { return filesUnchanged(kept.files); },
      [](const Composed&) { return true; }, [&] { return compose(scenePath, projectRoot); },
      [&](Slot<Composed>& slot, const std::shared_ptr<const Composed>& built) {
        if (built->keep && built->stage)
          slot.kept = built;
        evict<Composed>(scenes_, options_.composedScenes);
      });
}

std::shared_ptr<const StageCache::Inspected> StageCache::inspected(const std::string& scenePath,
                                                                   const Composed& composed,
                                                                   const std::string& layer) {
  const auto current = [&](const Inspected& inspected) {
    return inspected.generation == composed.generation;
  };
  return shared<Inspected>(
      mutex_, inspections_, scenePath + '\n' + layer, clock_, current, current,
      [&] { return inspect(composed, layer); },
      [&](InspectionSlot& slot, const std::shared_ptr<const Inspected>& built) {
        if (!built->stage)
          return;
        if (slot.lastDigest && *slot.lastDigest != built->stage->digest)
          ++revision_;
        slot.lastDigest = built->stage->digest;
        if (composed.keep)
          slot.kept = built;
        evict<Inspected>(inspections_, options_.inspections);
      });
}

StageCache::Lookup StageCache::stage(const std::string& scenePath, const std::string& activeLayer,
                                     const std::string& projectRoot) {
  const std::shared_ptr<const Composed> scene = composed(scenePath, projectRoot);
  if (!scene->stage)
    return Lookup{.stage = nullptr, .failure = scene->failure, .revision = revision()};
  const std::shared_ptr<const Inspected> found =
      inspected(scenePath, *scene, layerNamed(*scene->stage, activeLayer));
  return Lookup{.stage = found->stage, .failure = found->failure, .revision = revision()};
}

template <class T, class Map>
void StageCache::evict(Map& slots, std::size_t capacity) {
  std::vector<typename Map::iterator> withValue;
  for (auto it = slots.begin(); it != slots.end(); ++it) {
    if (it->second.kept)
      withValue.push_back(it);
  }
  const auto older = [](const auto& a, const auto& b) {
    return a->second.lastUsed < b->second.lastUsed;
  };
  std::sort(withValue.begin(), withValue.end(), older);
  for (std::size_t i = 0; i + capacity < withValue.size(); ++i)
    withValue[i]->second.kept.reset();

  while (slots.size() > kMaxInspectionSlots) {
    auto oldest = slots.end();
    for (auto it = slots.begin(); it != slots.end(); ++it) {
      if (!it->second.inFlight.valid() && (oldest == slots.end() || older(it, oldest)))
        oldest = it;
    }
    if (oldest == slots.end())
      return;
    slots.erase(oldest);
  }
}

std::uint64_t StageCache::revision() const {
  const std::lock_guard lock(mutex_);
  return revision_;
}

}  // namespace orvan::engine
