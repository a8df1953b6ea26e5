#include "Store/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace orvan::engine {
namespace {

constexpr std::string_view kTemporaryMark = ".orvan-new-";

StoreError failure(const std::string& what, const std::string& path, int error) {
  return StoreError{what + " " + path + ": " + std::strerror(error)};
}

std::string folderOf(const std::string& path) {
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  return parent.empty() ? std::string(".") : parent.string();
}

std::string temporaryPathFor(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  const std::filesystem::path target(path);
  const std::string name = "." + target.filename().string() + std::string(kTemporaryMark) +
                           std::to_string(::getpid()) + "-" + std::to_string(counter++);
  return (target.parent_path() / name).string();
}

bool writeAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t wrote = ::write(fd, content.data(), content.size());
    if (wrote < 0) {
      if (errno == EINTR)
        continue;
      return false;
    }
    content.remove_prefix(static_cast<std::size_t>(wrote));
  }
  return true;
}

// The new file gets the permissions of the one it replaces; a new file those of the umask.
void keepMode(int fd, const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0)
    ::fchmod(fd, status.st_mode & 07777);
}

}  // namespace

StoreResult<FileReplacement> FileReplacement::prepare(const std::string& path,
                                                      std::string_view content) {
  std::string temporary = temporaryPathFor(path);
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0)
    return failure("cannot write beside", path, errno);
  FileReplacement replacement(path, std::move(temporary));
  keepMode(fd, path);
  const bool written = writeAll(fd, content) && ::fsync(fd) == 0;
  const int error = errno;
  const bool closed = ::close(fd) == 0;
  if (!written)
    return failure("cannot write", replacement.temporary_, error);
  if (!closed)
    return failure("cannot write", replacement.temporary_, errno);
  return replacement;
}

FileReplacement::FileReplacement(FileReplacement&& other) noexcept
    : path_(std::move(other.path_)), temporary_(std::move(other.temporary_)) {
  other.temporary_.clear();
}

FileReplacement::~FileReplacement() {
  if (!temporary_.empty())
    ::unlink(temporary_.c_str());
}

StoreResult<FileStamp> FileReplacement::commit() {
  if (temporary_.empty())
    return StoreError{"the replacement of " + path_ + " was already used"};
  if (::rename(temporary_.c_str(), path_.c_str()) != 0)
    return failure("cannot replace", path_, errno);
  temporary_.clear();
  const std::string folder = folderOf(path_);
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return failure("cannot sync the folder", folder, errno);
  const bool synced = ::fsync(fd) == 0;
  const int error = errno;
  ::close(fd);
  if (!synced)
    return failure("cannot sync the folder", folder, error);
  return stampOf(path_);
}

StoreResult<FileStamp> replaceFileAtomically(const std::string& path, std::string_view content) {
  auto prepared = FileReplacement::prepare(path, content);
  if (!prepared)
    return prepared.error();
  return prepared->commit();
}

bool isReplacementTemporary(std::string_view fileName) {
  return fileName.starts_with(".") && fileName.find(kTemporaryMark) != std::string_view::npos;
}

std::size_t removeReplacementTemporaries(const std::string& folder) {
  std::error_code error;
  std::size_t removed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    if (!entry.is_regular_file(error) || !isReplacementTemporary(entry.path().filename().string()))
      continue;
    if (std::filesystem::remove(entry.path(), error))
      ++removed;
  }
  return removed;
}

}  // namespace orvan::engine
