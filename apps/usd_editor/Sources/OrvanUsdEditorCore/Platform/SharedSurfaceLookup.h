#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvan::editor {

// One frame surface of the viewport, mapped into this process: `height` rows of `rowBytes`
// bytes, four bytes a pixel in the order blue, green, red, alpha, rows from the top down. The
// mapping lives as long as the last shared_ptr to it. The producer may write the pixels again
// once the frame shown from it has been acknowledged.
struct SharedSurface {
  std::uint32_t id = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t rowBytes = 0;
  const std::uint8_t* pixels = nullptr;
};

// The port through which the viewport host finds a surface by the identifier a "frame" line
// names. Main thread only.
class SharedSurfaceLookup {
 public:
  virtual ~SharedSurfaceLookup() = default;
  // The surface, mapped once and kept in a small cache; null when it does not exist or its header
  // does not describe a surface this editor can show.
  virtual std::shared_ptr<const SharedSurface> lookup(std::uint32_t id) = 0;
};

}  // namespace orvan::editor
