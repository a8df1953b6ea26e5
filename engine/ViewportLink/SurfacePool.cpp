#include "ViewportLink/SurfacePool.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>

namespace orvan::engine {

std::unique_ptr<SharedFrameSurface> SharedFrameSurface::create(std::uint32_t width,
                                                               std::uint32_t height,
                                                               std::string& error) {
  const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
  const std::size_t pixelBytes = rowBytes * height;
  if (width == 0 || height == 0 || pixelBytes > 0xffffffffu) {
    error = "a surface of " + std::to_string(width) + "x" + std::to_string(height) +
            " pixels cannot be made";
    return nullptr;
  }
  const std::size_t bytes = wire::kSharedSurfaceHeaderBytes + pixelBytes;
  static std::mt19937 random{std::random_device{}()};
  for (int attempt = 0; attempt < 16; ++attempt) {
    const std::uint32_t id = static_cast<std::uint32_t>(random());
    if (id == 0)
      continue;
    const std::string name = wire::sharedSurfaceName(id);
    const int fd = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
      if (errno == EEXIST)
        continue;
      error = "shm_open " + name + ": " + std::strerror(errno);
      return nullptr;
    }
    void* mapping = MAP_FAILED;
    if (::ftruncate(fd, static_cast<off_t>(bytes)) == 0)
      mapping = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    const int savedErrno = errno;
    ::close(fd);
    if (mapping == MAP_FAILED) {
      ::shm_unlink(name.c_str());
      error = "cannot size or map " + name + ": " + std::strerror(savedErrno);
      return nullptr;
    }
    auto* header = new (mapping) wire::SharedSurfaceHeader{};
    header->width = width;
    header->height = height;
    header->rowBytes = static_cast<std::uint32_t>(rowBytes);
    header->ownerPid = static_cast<std::uint32_t>(::getpid());
    header->capacityBytes = static_cast<std::uint32_t>(pixelBytes);
    return std::unique_ptr<SharedFrameSurface>(new SharedFrameSurface(id, mapping, bytes));
  }
  error = "no free surface identifier after 16 tries";
  return nullptr;
}

SharedFrameSurface::~SharedFrameSurface() {
  ::munmap(mapping_, bytes_);
  ::shm_unlink(wire::sharedSurfaceName(id_).c_str());
}

SharedFrameSurface* SurfacePool::acquire(std::uint32_t width, std::uint32_t height,
                                         std::string& error) {
  std::erase_if(entries_, [&](const Entry& entry) {
    return !entry.out && (entry.surface->width() != width || entry.surface->height() != height);
  });
  std::size_t ofSize = 0;
  for (Entry& entry : entries_) {
    if (entry.surface->width() != width || entry.surface->height() != height)
      continue;
    ++ofSize;
    if (!entry.out)
      return entry.surface.get();
  }
  if (ofSize >= perSize_)
    return nullptr;
  std::unique_ptr<SharedFrameSurface> made = SharedFrameSurface::create(width, height, error);
  if (!made)
    return nullptr;
  entries_.push_back(Entry{.surface = std::move(made)});
  return entries_.back().surface.get();
}

void SurfacePool::handOut(SharedFrameSurface& surface, std::uint64_t frameIndex) {
  for (Entry& entry : entries_) {
    if (entry.surface.get() == &surface) {
      entry.out = true;
      entry.frameIndex = frameIndex;
      surface.header()->frameIndex = frameIndex;
    }
  }
}

bool SurfacePool::acknowledge(std::uint64_t frameIndex, std::uint32_t surfaceId) {
  for (Entry& entry : entries_) {
    if (entry.out && entry.frameIndex == frameIndex && entry.surface->id() == surfaceId) {
      entry.out = false;
      return true;
    }
  }
  return false;
}

void SurfacePool::releaseAll() {
  for (Entry& entry : entries_)
    entry.out = false;
}

std::size_t SurfacePool::outstanding() const {
  return static_cast<std::size_t>(
      std::count_if(entries_.begin(), entries_.end(), [](const Entry& e) { return e.out; }));
}

std::size_t sweepStaleSurfaces(const std::string& folder) {
  const std::string prefix = std::string(wire::kSharedSurfaceNamePrefix).substr(1);
  std::error_code error;
  std::size_t removed = 0;
  for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = item.path().filename().string();
    if (!name.starts_with(prefix))
      continue;
    const std::string shmName = "/" + name;
    const int fd = ::shm_open(shmName.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
      continue;
    wire::SharedSurfaceHeader header;
    const ssize_t got = ::pread(fd, &header, sizeof header, 0);
    ::close(fd);
    if (got != static_cast<ssize_t>(sizeof header) || header.magic != wire::kSharedSurfaceMagic)
      continue;
    const auto owner = static_cast<pid_t>(header.ownerPid);
    if (owner <= 0 || owner == ::getpid())
      continue;
    if (::kill(owner, 0) != 0 && errno == ESRCH && ::shm_unlink(shmName.c_str()) == 0)
      ++removed;
  }
  return removed;
}

}  // namespace orvan::engine
