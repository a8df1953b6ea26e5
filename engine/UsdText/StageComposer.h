#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "UsdText/Layer.h"
#include "UsdText/ReadError.h"
#include "UsdText/Stage.h"

namespace orvan::engine {

struct ComposeOptions {
  // Layers left out of the layer stack, by path (absolute, or relative to the working directory).
  std::vector<std::string> mutedLayers;
  // With false, payloads are recorded on their prims but not brought in.
  bool loadPayloads = true;
};

struct StageOpenResult {
  std::shared_ptr<Stage> stage;  // null when the root layer itself could not be read
  std::optional<ReadError> error;

  bool ok() const { return stage != nullptr; }
};

// Composes the stage of a root layer file. Only a root layer that cannot be read fails the whole
// stage; every other problem (a missing sublayer, a broken reference, a binary file) is recorded in
// the stage, on the prim where it happened.
StageOpenResult openStage(const std::string& rootLayerPath, const ComposeOptions& options = {});
// The same for a root layer already in memory; relative asset paths resolve against its identifier.
StageOpenResult composeStage(std::shared_ptr<const Layer> rootLayer,
                             const ComposeOptions& options = {});

}  // namespace orvan::engine
