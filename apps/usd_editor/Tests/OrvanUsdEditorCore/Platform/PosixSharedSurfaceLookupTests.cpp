// Frame surfaces as POSIX shared-memory objects: headers are checked, each identifier is mapped
// once, and a mapping outlives the cache while someone still reads it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Platform/PosixSharedSurfaceLookup.h"
#include "orvan/wire/SharedSurfaceLayout.h"

namespace orvan::editor {
namespace {

// Identifiers of this test process, so that parallel runs do not meet.
std::uint32_t testId(std::uint32_t index) {
  return 0x7e570000u + static_cast<std::uint32_t>(::getpid() % 2048) * 16 + index;
}

class SharedSurfaceObjects {
 public:
  ~SharedSurfaceObjects() {
    for (std::uint32_t id : ids_)
      remove(id);
  }
  // An object holding `header`, then `pixelBytes` bytes counting up from 0.
  void create(std::uint32_t id, const wire::SharedSurfaceHeader& header, std::size_t pixelBytes) {
    const std::string name = wire::sharedSurfaceName(id);
    ::shm_unlink(name.c_str());
    const int descriptor = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(descriptor, 0) << name;
    ids_.push_back(id);
    std::vector<std::uint8_t> bytes(wire::kSharedSurfaceHeaderBytes + pixelBytes);
    std::memcpy(bytes.data(), &header, sizeof header);
    for (std::size_t index = 0; index < pixelBytes; ++index)
      bytes[wire::kSharedSurfaceHeaderBytes + index] = static_cast<std::uint8_t>(index);
    ASSERT_EQ(::write(descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ::close(descriptor);
  }
  static void remove(std::uint32_t id) { ::shm_unlink(wire::sharedSurfaceName(id).c_str()); }

 private:
  std::vector<std::uint32_t> ids_;
};

wire::SharedSurfaceHeader header(std::uint32_t width, std::uint32_t height,
                                 std::uint32_t rowBytes) {
  wire::SharedSurfaceHeader value;
  value.width = width;
  value.height = height;
  value.rowBytes = rowBytes;
  value.ownerPid = static_cast<std::uint32_t>(::getpid());
  value.capacityBytes = rowBytes * height;
  return value;
}

TEST(PosixSharedSurfaceLookupTest, AValidSurfaceIsMappedWithItsPixels) {
  SharedSurfaceObjects objects;
  objects.create(testId(0), header(3, 2, 16), 32);
  PosixSharedSurfaceLookup lookup;
  const auto surface = lookup.lookup(testId(0));
  ASSERT_NE(surface, nullptr);
  EXPECT_EQ(surface->id, testId(0));
  EXPECT_EQ(surface->width, 3u);
  EXPECT_EQ(surface->height, 2u);
  EXPECT_EQ(surface->rowBytes, 16u);
  EXPECT_EQ(surface->pixels[0], 0);
  EXPECT_EQ(surface->pixels[17], 17) << "the pixels start after the 64-byte header";
  EXPECT_EQ(lookup.lookup(testId(0)), surface) << "mapped once";
}

TEST(PosixSharedSurfaceLookupTest, HeadersThatDoNotDescribeAShowableSurfaceAreRefused) {
  SharedSurfaceObjects objects;
  const struct {
    const char* what;
    std::function<void(wire::SharedSurfaceHeader&)> change;
    std::size_t pixelBytes;
  } cases[] = {
      {"magic", [](auto& h) { h.magic = 0x12345678; }, 32},
      {"version", [](auto& h) { h.version = 2; }, 32},
      {"format", [](auto& h) { h.format = 7; }, 32},
      {"zero width", [](auto& h) { h.width = 0; }, 32},
      {"zero height", [](auto& h) { h.height = 0; }, 32},
      {"rows narrower than the width", [](auto& h) { h.rowBytes = 11; }, 32},
      {"rows past the end", [](auto&) {}, 31},
      {"huge height", [](auto& h) { h.height = 0xffffffffu; }, 32},
  };
  std::uint32_t index = 1;
  PosixSharedSurfaceLookup lookup;
  for (const auto& [what, change, pixelBytes] : cases) {
    wire::SharedSurfaceHeader value = header(3, 2, 16);
    change(value);
    objects.create(testId(index), value, pixelBytes);
    EXPECT_EQ(lookup.lookup(testId(index)), nullptr) << what;
    ++index;
  }
  EXPECT_EQ(lookup.lookup(testId(15)), nullptr) << "no such object";

  // Shorter than a header.
  const std::string name = wire::sharedSurfaceName(testId(14));
  const int descriptor = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(::write(descriptor, "OVSF", 4), 4);
  ::close(descriptor);
  EXPECT_EQ(lookup.lookup(testId(14)), nullptr);
  SharedSurfaceObjects::remove(testId(14));
}

TEST(PosixSharedSurfaceLookupTest, TheCacheKeepsTheNewestAndReadersKeepTheirMapping) {
  SharedSurfaceObjects objects;
  for (std::uint32_t index = 0; index < 3; ++index)
    objects.create(testId(index), header(1, 1, 4), 4);
  PosixSharedSurfaceLookup lookup(2);
  const auto first = lookup.lookup(testId(0));
  ASSERT_NE(first, nullptr);
  ASSERT_NE(lookup.lookup(testId(1)), nullptr);
  // The producer ends and unlinks its objects; what is cached stays mapped.
  for (std::uint32_t index = 0; index < 3; ++index)
    SharedSurfaceObjects::remove(testId(index));
  EXPECT_NE(lookup.lookup(testId(1)), nullptr);
  EXPECT_NE(lookup.lookup(testId(0)), nullptr);
  EXPECT_EQ(lookup.lookup(testId(2)), nullptr);

  objects.create(testId(3), header(1, 1, 4), 4);
  objects.create(testId(4), header(1, 1, 4), 4);
  ASSERT_NE(lookup.lookup(testId(3)), nullptr);
  ASSERT_NE(lookup.lookup(testId(4)), nullptr);
  EXPECT_EQ(lookup.lookup(testId(0)), nullptr) << "pushed out of the cache and gone";
  EXPECT_EQ(first->pixels[3], 3) << "a reader still holds its mapping";

  lookup.forgetAll();
  SharedSurfaceObjects::remove(testId(3));
  EXPECT_EQ(lookup.lookup(testId(3)), nullptr);
}

}  // namespace
}  // namespace orvan::editor
