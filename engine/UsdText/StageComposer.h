#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "UsdText/Layer.h"
#include "UsdText/LayerReader.h"
#include "UsdText/ReadError.h"
#include "UsdText/Stage.h"

namespace orvan::engine {

// Budgets of one composition. A stage beyond them is not made: openStage fails with the reason, so
// that a runaway or hostile scene ends with a clear error instead of taking all of the memory.
struct ComposeLimits {
  std::size_t maxPrims = 2'000'000;  // composed prims
  // Sites looked at, summed over composed prims: one for a prim without arcs, one more for every
  // arc that reaches it, directly or through an ancestor. This bounds the work of composing.
  std::size_t maxSites = 10'000'000;
  std::uint64_t maxLayerBytes = kDefaultMaxLayerBytes;  // the size of one layer file
};

// Arcs reached through arcs nest at most this deep; a deeper arc is left out with a problem on the
// prim. This also bounds the recursion that walks one prim's arcs.
inline constexpr std::size_t kMaxArcDepth = 64;
// One prim is composed from at most this many sites (the prim itself and every arc that reaches
// it); further arcs are left out with a problem on the prim.
inline constexpr std::size_t kMaxPrimSites = 20'000;

struct ComposeOptions {
  // Layers left out of the layer stack, by path (absolute, or relative to the working directory).
  std::vector<std::string> mutedLayers = {};
  // With false, payloads are recorded on their prims but not brought in.
  bool loadPayloads = true;
  ComposeLimits limits = {};
  // When not empty, sublayers, references and payloads resolve only to files inside this folder
  // (symbolic links followed); any other is a problem that names the asset as written and says
  // nothing about the file. The root layer must lie inside it too.
  std::string confinementRoot = {};
  // Consulted before the disk for every layer file, by its absolute, normalised path: a layer it
  // gives is used as it is, so a stage can be composed from layers held in memory. Null: read
  // the file.
  std::function<std::shared_ptr<const Layer>(const std::string& identifier)> layerProvider = {};
};

struct StageOpenResult {
  std::shared_ptr<Stage> stage;  // null when the root layer itself could not be read
  std::optional<ReadError> error;

  bool ok() const { return stage != nullptr; }
};

// Composes the stage of a root layer file. Only a root layer that cannot be read, or a stage
// beyond its limits, fails the whole stage; every other problem (a missing sublayer, a broken
// reference, a binary file) is recorded in the stage, on the prim where it happened.
StageOpenResult openStage(const std::string& rootLayerPath, const ComposeOptions& options = {});
// The same for a root layer already in memory; relative asset paths resolve against its identifier.
StageOpenResult composeStage(std::shared_ptr<const Layer> rootLayer,
                             const ComposeOptions& options = {});

}  // namespace orvan::engine
