#include "Store/FileStamp.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvan::engine {

FileStamp stampOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    return {};
  return FileStamp{
      .exists = true,
      .size = static_cast<std::uint64_t>(status.st_size),
      .modifiedNanoseconds =
          static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec,
      .inode = static_cast<std::uint64_t>(status.st_ino)};
}

StoreResult<std::string> readFileText(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0)
    return StoreError{"cannot read " + path + ": " + std::strerror(errno)};
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd);
    return StoreError{"cannot read " + path + ": not a regular file"};
  }
  std::string text;
  text.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (true) {
    if (filled == text.size())
      text.resize(text.size() + (1 << 16));  // the file grew since it was measured
    const ssize_t got = ::read(fd, text.data() + filled, text.size() - filled);
    if (got == 0)
      break;
    if (got < 0) {
      if (errno == EINTR)
        continue;
      const int error = errno;
      ::close(fd);
      return StoreError{"cannot read " + path + ": " + std::strerror(error)};
    }
    filled += static_cast<std::size_t>(got);
  }
  ::close(fd);
  text.resize(filled);
  return text;
}

}  // namespace orvan::engine
