#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "Inspector/StageLimits.h"
#include "ProjectServer/FileSignature.h"
#include "UsdText/ReadError.h"
#include "UsdText/Stage.h"

namespace orvan::engine {

// A scene composed and inspected: the editor's StageInspection as JSON text.
struct InspectedStage {
  std::string json = {};
  std::uint64_t digest = 0;  // of `json`
};

struct StageCacheOptions {
  std::size_t inspections = 8;       // inspections kept (scene and active layer)
  std::size_t composedScenes = 2;    // composed stages kept
  std::size_t concurrentBuilds = 2;  // compositions and inspections running at once
  StageLimits limits = {};           // budgets of reading, composing and inspecting one stage
  // Called as each composition or inspection starts, on the thread that runs it (tests count and
  // hold builds with it).
  enum class Build { compose, inspect };
  std::function<void(Build)> onBuild = {};
};

// The stages the server has composed and inspected. A scene is composed once and its stage shared
// by every active layer; an inspection is kept per scene and active layer, where the active layer
// is the stack's layer it names (so every name of one layer, and every name of no layer at all,
// shares one inspection). Both stay while none of the scene's files changes (modification time or
// size, every layer of the stack and every referenced layer, the missing ones included); any
// change makes the next request compose the scene again. Requests for something being built wait
// for that build rather than start their own, and at most `concurrentBuilds` builds run at once.
// The revision counts the changes the server has seen: it starts at 1 and grows each time an
// inspection done again gives another stage than before.
class StageCache {
 public:
  struct Lookup {
    std::shared_ptr<const InspectedStage> stage = {};  // null when the scene could not be read
    std::optional<ReadError> failure = {};
    std::uint64_t revision = 0;
  };

  explicit StageCache(StageCacheOptions options = {});

  // The stage of `scenePath` (absolute) with override marks measured against `activeLayer`. An
  // active layer that is not in the scene's layer stack is ignored: the stage then marks against
  // the layer the editor would pick by itself, and the editor, which finds its layer gone, picks
  // again.
  // With a `projectRoot`, the scene's layers resolve only to files inside it.
  Lookup stage(const std::string& scenePath, const std::string& activeLayer,
               const std::string& projectRoot = {});

  std::uint64_t revision() const;

 private:
  struct Composed {
    std::shared_ptr<const Stage> stage = {};  // null when the root layer could not be read
    std::optional<ReadError> failure = {};
    std::vector<FileSignature> files = {};
    std::uint64_t generation = 0;  // one per composition
    bool keep = false;             // its files were settled when it was read
  };
  struct Inspected {
    std::shared_ptr<const InspectedStage> stage = {};
    std::optional<ReadError> failure = {};
    std::uint64_t generation = 0;  // of the composition it was made from
  };
  template <class T>
  struct Slot {
    std::shared_ptr<const T> kept = {};
    std::shared_future<std::shared_ptr<const T>> inFlight = {};
    std::uint64_t lastUsed = 0;
  };
  struct InspectionSlot : Slot<Inspected> {
    std::optional<std::uint64_t> lastDigest = {};  // of the last stage built, kept or not
  };

  std::shared_ptr<const Composed> composed(const std::string& scenePath,
                                           const std::string& projectRoot);
  std::shared_ptr<const Inspected> inspected(const std::string& scenePath, const Composed& composed,
                                             const std::string& layer);
  std::shared_ptr<const Composed> compose(const std::string& scenePath,
                                          const std::string& projectRoot);
  std::shared_ptr<const Inspected> inspect(const Composed& composed, const std::string& layer);
  template <class T, class Map>
  static void evict(Map& slots, std::size_t capacity);

  const StageCacheOptions options_;
  std::counting_semaphore<64> builds_;
  mutable std::mutex mutex_;
  std::map<std::string, Slot<Composed>> scenes_;
  std::map<std::string, InspectionSlot> inspections_;
  std::uint64_t revision_ = 1;
  std::uint64_t clock_ = 0;
  std::atomic<std::uint64_t> generations_ = 0;
};

}  // namespace orvan::engine
