#include "Platform/PosixSharedSurfaceLookup.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "Platform/UniqueFd.h"
#include "orvan/wire/SharedSurfaceLayout.h"

namespace orvan::editor {

namespace {

// A read-only mapping that unmaps itself with the last reference.
struct MappedSurface {
  SharedSurface surface;
  void* base = nullptr;
  std::size_t length = 0;
  ~MappedSurface() {
    if (base)
      ::munmap(base, length);
  }
};

bool headerDescribesShowableSurface(const wire::SharedSurfaceHeader& header,
                                    std::size_t objectBytes) {
  if (header.magic != wire::kSharedSurfaceMagic || header.version != wire::kSharedSurfaceVersion ||
      header.format != wire::kSharedSurfaceFormatBgra8)
    return false;
  if (header.width == 0 || header.height == 0)
    return false;
  if (std::uint64_t{header.rowBytes} < std::uint64_t{header.width} * 4)
    return false;
  const std::uint64_t pixelBytes = std::uint64_t{header.rowBytes} * header.height;
  return pixelBytes <= objectBytes - wire::kSharedSurfaceHeaderBytes;
}

}  // namespace

std::shared_ptr<const SharedSurface> mapSharedSurface(std::uint32_t id) {
  const std::string name = wire::sharedSurfaceName(id);
  UniqueFd descriptor(::shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0));
  if (!descriptor.isValid())
    return nullptr;
  struct stat status {};
  if (::fstat(descriptor.get(), &status) != 0 ||
      status.st_size < static_cast<off_t>(wire::kSharedSurfaceHeaderBytes))
    return nullptr;
  const auto length = static_cast<std::size_t>(status.st_size);
  void* base = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, descriptor.get(), 0);
  if (base == MAP_FAILED)
    return nullptr;
  auto mapped = std::make_shared<MappedSurface>();
  mapped->base = base;
  mapped->length = length;
  wire::SharedSurfaceHeader header;
  std::memcpy(&header, base, sizeof header);
  if (!headerDescribesShowableSurface(header, length))
    return nullptr;
  mapped->surface = {id, header.width, header.height, header.rowBytes,
                     static_cast<const std::uint8_t*>(base) + wire::kSharedSurfaceHeaderBytes};
  return std::shared_ptr<const SharedSurface>(mapped, &mapped->surface);
}

PosixSharedSurfaceLookup::PosixSharedSurfaceLookup(std::size_t cacheSize)
    : cacheSize_(std::max<std::size_t>(cacheSize, 1)) {}

std::shared_ptr<const SharedSurface> PosixSharedSurfaceLookup::lookup(std::uint32_t id) {
  const auto cached = std::find_if(cache_.begin(), cache_.end(),
                                   [id](const auto& entry) { return entry.first == id; });
  if (cached != cache_.end()) {
    cache_.splice(cache_.begin(), cache_, cached);
    return cache_.front().second;
  }
  std::shared_ptr<const SharedSurface> surface = mapSharedSurface(id);
  if (!surface)
    return nullptr;
  cache_.emplace_front(id, surface);
  if (cache_.size() > cacheSize_)
    cache_.pop_back();
  return surface;
}

void PosixSharedSurfaceLookup::forgetAll() {
  cache_.clear();
}

}  // namespace orvan::editor
