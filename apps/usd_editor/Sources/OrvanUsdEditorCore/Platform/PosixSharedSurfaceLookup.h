#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include "Platform/SharedSurfaceLookup.h"

namespace orvan::editor {

// Surfaces as POSIX shared-memory objects ("/orvan-surface-<id>", a 64-byte header then the
// pixels). Each identifier is mapped once; the newest `cacheSize` mappings are kept, older ones
// are unmapped when the last reader lets them go. A producer reuses its few surfaces for every
// frame of one size, so a handful of entries covers the whole stream.
class PosixSharedSurfaceLookup final : public SharedSurfaceLookup {
 public:
  explicit PosixSharedSurfaceLookup(std::size_t cacheSize = 8);

  std::shared_ptr<const SharedSurface> lookup(std::uint32_t id) override;
  // Drops every cached mapping (a producer that restarted created new objects).
  void forgetAll();

 private:
  std::size_t cacheSize_;
  std::list<std::pair<std::uint32_t, std::shared_ptr<const SharedSurface>>> cache_;  // newest first
};

// Maps the object named after `id` and checks its header: magic, version, BGRA8 format, width and
// height at least 1, rows of at least width * 4 bytes that fit the object. Null on any failure.
std::shared_ptr<const SharedSurface> mapSharedSurface(std::uint32_t id);

}  // namespace orvan::editor
