#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "UsdText/Layer.h"
#include "UsdText/ReadError.h"

namespace orvan::engine {

// The largest layer file read by default (1 GiB).
inline constexpr std::uint64_t kDefaultMaxLayerBytes = 1ull << 30;

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
// Reads a layer file of at most `maxBytes`; see readRegularFile for what is refused.
LayerReadResult readLayerFile(const std::string& path,
                              std::uint64_t maxBytes = kDefaultMaxLayerBytes);

// The bytes of a regular file of at most `maxBytes`, or why there are none ("could not open the
// file", "is a folder, not a layer file", "is not a regular file", "is larger than the limit of N
// bytes", ...). Pipes, devices and sockets are refused before a byte is read, so a layer can
// neither wait for a writer nor read without end.
struct FileText {
  std::string text;
  std::optional<std::string> error;
};
FileText readRegularFile(const std::string& path, std::uint64_t maxBytes);

}  // namespace orvan::engine
