#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// A rendered frame handed from the viewport's processes to the editor: a POSIX shared-memory
// object named after a 32-bit identifier, holding this header followed by the pixels. The producer
// creates it (O_EXCL, so an identifier is never shared), writes pixels and header, then announces
// the identifier on a "frame" line; the editor maps each identifier once, shows the pixels and
// acknowledges the frame, after which the producer may write the surface again. The producer
// unlinks its surfaces when it ends; a producer that starts removes surfaces whose owner process
// is gone.
namespace orvan::wire {

inline constexpr std::uint32_t kSharedSurfaceMagic = 0x4f565346;  // "OVSF"
inline constexpr std::uint32_t kSharedSurfaceVersion = 1;
// Four bytes a pixel in the order blue, green, red, alpha; rows from the top of the picture down.
inline constexpr std::uint32_t kSharedSurfaceFormatBgra8 = 1;
inline constexpr std::size_t kSharedSurfaceHeaderBytes = 64;
inline constexpr const char* kSharedSurfaceNamePrefix = "/orvan-surface-";

struct SharedSurfaceHeader {
  std::uint32_t magic = kSharedSurfaceMagic;
  std::uint32_t version = kSharedSurfaceVersion;
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  std::uint32_t rowBytes = 0;
  std::uint32_t format = kSharedSurfaceFormatBgra8;
  std::uint32_t ownerPid = 0;       // the process that created and will unlink it
  std::uint32_t capacityBytes = 0;  // pixel bytes the object can hold after the header
  std::uint64_t frameIndex = 0;     // the frame last written into it
  std::uint8_t reserved[24] = {};
};
static_assert(sizeof(SharedSurfaceHeader) == kSharedSurfaceHeaderBytes);

// "/orvan-surface-<id>", the name for shm_open.
inline std::string sharedSurfaceName(std::uint32_t identifier) {
  return kSharedSurfaceNamePrefix + std::to_string(identifier);
}

}  // namespace orvan::wire
