#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Inspector/StageLimits.h"
#include "ProjectServer/FileSignature.h"
#include "UsdText/ReadError.h"

namespace orvan::engine {

// A scene composed and inspected: the editor's StageInspection as JSON text, and the files it
// came from (every layer of the stack and every referenced layer, including the ones that were
// missing, so that a file that appears later counts as a change too).
struct InspectedStage {
  std::string json = {};
  std::uint64_t digest = 0;  // of `json`
  std::vector<FileSignature> files = {};
};

// The stages the server has inspected, per scene and active layer. A stage is kept while none of
// its files changes (modification time or size); any change makes the next request read the scene
// again. Requests for a stage that is being inspected wait for that inspection rather than start
// their own. The revision counts the changes the server has seen: it starts at 1 and grows each
// time a scene is inspected again and gives another stage than before.
class StageCache {
 public:
  struct Lookup {
    std::shared_ptr<const InspectedStage> stage = {};  // null when the scene could not be read
    std::optional<ReadError> failure = {};
    std::uint64_t revision = 0;
  };

  explicit StageCache(std::size_t capacity = 8, StageLimits limits = {})
      : capacity_(capacity), limits_(limits) {}

  // The stage of `scenePath` (absolute) with override marks measured against `activeLayer`. An
  // active layer that is not in the scene's layer stack is ignored: the stage then marks against
  // the layer the editor would pick by itself, and the editor, which finds its layer gone, picks
  // again.
  // With a `projectRoot`, the scene's layers resolve only to files inside it.
  Lookup stage(const std::string& scenePath, const std::string& activeLayer,
               const std::string& projectRoot = {});

  std::uint64_t revision() const;

 private:
  struct Built {
    std::shared_ptr<const InspectedStage> stage = {};
    std::optional<ReadError> failure = {};
    bool keep = false;  // its files were settled when it was read
  };
  struct Entry {
    std::shared_ptr<const InspectedStage> kept = {};
    std::shared_future<Built> inFlight = {};
    std::optional<std::uint64_t> lastDigest = {};  // of the last stage built, kept or not
    std::uint64_t lastUsed = 0;
  };

  Built build(const std::string& scenePath, const std::string& activeLayer,
              const std::string& projectRoot) const;
  void finish(const std::string& key, const Built& built);
  // Forgets an inspection that ended with an exception, so that the next request tries again.
  void abandon(const std::string& key);
  void evictBeyondCapacity();

  const std::size_t capacity_;
  const StageLimits limits_;
  mutable std::mutex mutex_;
  std::map<std::string, Entry> entries_;
  std::uint64_t revision_ = 1;
  std::uint64_t clock_ = 0;
};

}  // namespace orvan::engine
