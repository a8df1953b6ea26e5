#pragma once

#include <memory>
#include <optional>
#include <string>

#include "UsdText/Layer.h"
#include "UsdText/ReadError.h"

namespace orvan::engine {

// How deep the blocks of a layer (prims, values, variant sets) may nest; deeper text is refused
// rather than read with unbounded recursion.
inline constexpr int kMaxLayerNesting = 256;

struct LayerReadResult {
  std::shared_ptr<Layer> layer;  // null when reading failed
  std::optional<ReadError> error;

  bool ok() const { return layer != nullptr; }
};

// Reads a text layer. A layer that does not parse gives an error naming the file, the line and
// column of the first offending token and what the reader expected there; it never throws.
LayerReadResult readLayerText(std::string identifier, std::string text);
LayerReadResult readLayerFile(const std::string& path);

}  // namespace orvan::engine
