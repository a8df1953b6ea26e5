// Frame surfaces: at most three of a size, only free ones are written, an acknowledgement frees
// exactly its surface, and surfaces of processes that are gone are swept.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "ViewportLink/SurfacePool.h"

namespace orvan::engine {
namespace {

bool surfaceExists(std::uint32_t id) {
  return std::filesystem::exists("/dev/shm" + wire::sharedSurfaceName(id));
}

// What another process sees when it maps the surface by its identifier.
wire::SharedSurfaceHeader headerSeenFromOutside(std::uint32_t id) {
  wire::SharedSurfaceHeader header{};
  header.magic = 0;
  const int fd = ::shm_open(wire::sharedSurfaceName(id).c_str(), O_RDONLY, 0);
  if (fd < 0)
    return header;
  EXPECT_EQ(::pread(fd, &header, sizeof header, 0), static_cast<ssize_t>(sizeof header));
  ::close(fd);
  return header;
}

TEST(SurfacePoolTest, AtMostThreeSurfacesOfASizeAndAnAcknowledgementFreesItsOwn) {
  SurfacePool pool;
  std::string error;
  std::set<std::uint32_t> ids;
  for (std::uint64_t frame = 1; frame <= 3; ++frame) {
    SharedFrameSurface* surface = pool.acquire(64, 32, error);
    ASSERT_NE(surface, nullptr) << error;
    ids.insert(surface->id());
    pool.handOut(*surface, frame);
  }
  EXPECT_EQ(ids.size(), 3u);
  EXPECT_EQ(pool.outstanding(), 3u);
  // All three are out: no fourth is made and nothing may be written.
  EXPECT_EQ(pool.acquire(64, 32, error), nullptr);
  EXPECT_TRUE(error.empty());

  std::uint32_t secondId = 0;
  for (std::uint32_t id : ids) {
    const wire::SharedSurfaceHeader header = headerSeenFromOutside(id);
    EXPECT_EQ(header.magic, wire::kSharedSurfaceMagic);
    EXPECT_EQ(header.width, 64u);
    EXPECT_EQ(header.height, 32u);
    EXPECT_EQ(header.rowBytes, 256u);
    EXPECT_EQ(header.format, wire::kSharedSurfaceFormatBgra8);
    EXPECT_EQ(header.ownerPid, static_cast<std::uint32_t>(::getpid()));
    EXPECT_GE(header.capacityBytes, 256u * 32u);
    if (header.frameIndex == 2)
      secondId = id;
  }
  ASSERT_NE(secondId, 0u);
  // A stray or mismatched acknowledgement frees nothing.
  EXPECT_FALSE(pool.acknowledge(2, secondId + 1));
  EXPECT_FALSE(pool.acknowledge(9, secondId));
  EXPECT_EQ(pool.acquire(64, 32, error), nullptr);
  // The right one frees exactly that surface, once.
  EXPECT_TRUE(pool.acknowledge(2, secondId));
  EXPECT_FALSE(pool.acknowledge(2, secondId));
  SharedFrameSurface* again = pool.acquire(64, 32, error);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->id(), secondId);
  EXPECT_EQ(pool.size(), 3u);
}

TEST(SurfacePoolTest, ANewSizeDropsFreeSurfacesOfTheOldAndTheEndUnlinksEverything) {
  std::vector<std::uint32_t> ids;
  {
    SurfacePool pool;
    std::string error;
    SharedFrameSurface* small = pool.acquire(8, 8, error);
    ASSERT_NE(small, nullptr);
    const std::uint32_t freeId = small->id();
    SharedFrameSurface* held = pool.acquire(8, 8, error);
    ASSERT_EQ(held, small);  // the free one is reused, not a second made
    pool.handOut(*held, 1);
    SharedFrameSurface* other = pool.acquire(8, 8, error);
    ASSERT_NE(other, nullptr);
    const std::uint32_t otherId = other->id();
    // The view grew: the free small surface goes, the one the editor holds stays until released.
    SharedFrameSurface* large = pool.acquire(16, 16, error);
    ASSERT_NE(large, nullptr);
    EXPECT_FALSE(surfaceExists(otherId));
    EXPECT_TRUE(surfaceExists(freeId));
    EXPECT_EQ(pool.size(), 2u);
    pool.releaseAll();
    EXPECT_EQ(pool.outstanding(), 0u);
    ids = {freeId, large->id()};
  }
  for (std::uint32_t id : ids)
    EXPECT_FALSE(surfaceExists(id)) << id;
}

TEST(SurfacePoolTest, TheSweepRemovesSurfacesOfDeadOwnersOnly) {
  // A process that made a surface and died without unlinking it.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::string error;
    auto surface = SharedFrameSurface::create(4, 4, error);
    const std::uint32_t id = surface ? surface->id() : 0;
    [[maybe_unused]] const ssize_t written = ::write(fds[1], &id, sizeof id);
    ::_exit(0);  // no destructor: the object stays behind
  }
  std::uint32_t orphan = 0;
  ASSERT_EQ(::read(fds[0], &orphan, sizeof orphan), static_cast<ssize_t>(sizeof orphan));
  ::close(fds[0]);
  ::close(fds[1]);
  ::waitpid(child, nullptr, 0);
  ASSERT_NE(orphan, 0u);
  ASSERT_TRUE(surfaceExists(orphan));

  std::string error;
  auto mine = SharedFrameSurface::create(4, 4, error);
  ASSERT_TRUE(mine) << error;
  EXPECT_GE(sweepStaleSurfaces(), 1u);
  EXPECT_FALSE(surfaceExists(orphan));
  EXPECT_TRUE(surfaceExists(mine->id()));
}

}  // namespace
}  // namespace orvan::engine
