#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvan/wire/SharedSurfaceLayout.h"

namespace orvan::engine {

// One frame surface: a POSIX shared-memory object "/orvan-surface-<id>" of this process, mapped
// for writing. Unlinked and unmapped when destroyed.
class SharedFrameSurface {
 public:
  // A new object under a fresh random identifier (created exclusively, so never one that exists).
  static std::unique_ptr<SharedFrameSurface> create(std::uint32_t width, std::uint32_t height,
                                                    std::string& error);
  ~SharedFrameSurface();
  SharedFrameSurface(const SharedFrameSurface&) = delete;
  SharedFrameSurface& operator=(const SharedFrameSurface&) = delete;

  std::uint32_t id() const { return id_; }
  std::uint32_t width() const { return header()->width; }
  std::uint32_t height() const { return header()->height; }
  std::uint32_t rowBytes() const { return header()->rowBytes; }
  wire::SharedSurfaceHeader* header() const {
    return static_cast<wire::SharedSurfaceHeader*>(mapping_);
  }
  std::uint8_t* pixels() const {
    return static_cast<std::uint8_t*>(mapping_) + wire::kSharedSurfaceHeaderBytes;
  }

 private:
  SharedFrameSurface(std::uint32_t id, void* mapping, std::size_t bytes)
      : id_(id), mapping_(mapping), bytes_(bytes) {}
  std::uint32_t id_;
  void* mapping_;
  std::size_t bytes_;
};

// The surfaces frames are rendered into. A surface handed to the editor is out until the editor
// acknowledges its frame; only a free one is written. At most `perSize` surfaces of one size
// exist, so with all of them out the producer waits for an acknowledgement.
class SurfacePool {
 public:
  explicit SurfacePool(std::size_t perSize = 3) : perSize_(perSize) {}

  // A free surface of this size, made when fewer than `perSize` exist; null when every one is out
  // (`error` stays empty) or none could be made (`error` says why). Free surfaces of other sizes
  // are dropped: the view has a new size.
  SharedFrameSurface* acquire(std::uint32_t width, std::uint32_t height, std::string& error);
  // The surface now carries `frameIndex` and is out.
  void handOut(SharedFrameSurface& surface, std::uint64_t frameIndex);
  // The editor is done with a frame: its surface is free again. False when no surface is out
  // with this frame and identifier (a repeated or stray acknowledgement).
  bool acknowledge(std::uint64_t frameIndex, std::uint32_t surfaceId);
  // Every surface is free again: the reader that held them is gone.
  void releaseAll();
  std::size_t outstanding() const;
  std::size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    std::unique_ptr<SharedFrameSurface> surface;
    bool out = false;
    std::uint64_t frameIndex = 0;
  };
  std::size_t perSize_;
  std::vector<Entry> entries_;
};

// Removes the frame surfaces in `folder` (where the system keeps shared memory) whose owner
// process is gone; returns how many. Surfaces of living processes are left alone.
std::size_t sweepStaleSurfaces(const std::string& folder = "/dev/shm");

}  // namespace orvan::engine
