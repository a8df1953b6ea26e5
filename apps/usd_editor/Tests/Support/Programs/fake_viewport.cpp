// A stand-in for the viewport's two processes, chosen by the arguments:
//
//   --address A --parent-pid P   the runtime: says "Viewport server listening", then waits for
//                                the end of its standard input or a signal
//   --address A --json-lines     the client: one 4x2 BGRA surface in shared memory; on "open|..."
//                                prints a status line with the size and a frame on that surface,
//                                on "frame-ack|I|S" a status "acked I", on "close" a status
//                                "closed"; unlinks its surface at the end of its input
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "orvan/wire/SharedSurfaceLayout.h"

namespace {

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t start = 0;
  for (std::size_t end; (end = line.find('|', start)) != std::string::npos; start = end + 1)
    fields.push_back(line.substr(start, end - start));
  fields.push_back(line.substr(start));
  return fields;
}

void say(const std::string& line) {
  std::cout << line << '\n' << std::flush;
}

bool createSurface(std::uint32_t id) {
  namespace wire = orvan::wire;
  const std::string name = wire::sharedSurfaceName(id);
  const int descriptor = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  if (descriptor < 0)
    return false;
  wire::SharedSurfaceHeader header;
  header.width = 4;
  header.height = 2;
  header.rowBytes = 16;
  header.ownerPid = static_cast<std::uint32_t>(::getpid());
  header.capacityBytes = 32;
  std::vector<unsigned char> bytes(wire::kSharedSurfaceHeaderBytes + 32);
  std::memcpy(bytes.data(), &header, sizeof header);
  for (std::size_t index = 0; index < 32; ++index)
    bytes[wire::kSharedSurfaceHeaderBytes + index] = static_cast<unsigned char>(index * 3);
  const bool written =
      ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  ::close(descriptor);
  return written;
}

int runClient() {
  const std::uint32_t surfaceId = 0x0f000000u + static_cast<std::uint32_t>(::getpid() % 0xffff);
  if (!createSurface(surfaceId))
    return 2;
  std::uint64_t frameIndex = 0;
  std::string line;
  while (std::getline(std::cin, line)) {
    const std::vector<std::string> fields = split(line);
    if (fields[0] == "open" && fields.size() >= 7) {
      say(R"({"type":"status","message":"opened )" + fields[4] + "x" + fields[5] + R"("})");
      ++frameIndex;
      say(R"({"type":"frame","frameIndex":)" + std::to_string(frameIndex) + R"(,"surfaceId":)" +
          std::to_string(surfaceId) + R"(,"widthPx":4,"heightPx":2,"scaleFactor":2.0})");
    } else if (fields[0] == "frame-ack" && fields.size() == 3) {
      say(R"({"type":"status","message":"acked )" + fields[1] + R"("})");
    } else if (fields[0] == "close") {
      say(R"({"type":"status","message":"closed"})");
    }
  }
  ::shm_unlink(orvan::wire::sharedSurfaceName(surfaceId).c_str());
  return 0;
}

int runRuntime() {
  say("Viewport server listening on test");
  std::string line;
  while (std::getline(std::cin, line)) {
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  for (int index = 1; index < argc; ++index) {
    if (std::strcmp(argv[index], "--json-lines") == 0)
      return runClient();
  }
  return runRuntime();
}
