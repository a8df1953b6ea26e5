#include "Platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "Platform/UniqueFd.h"

namespace orvan::editor {

namespace {

Error fileError(std::string_view action, const std::filesystem::path& path, int error) {
  return Error::editor(
      error, fmt::format("Could not {} \"{}\": {}", action, path.string(), std::strerror(error)));
}

Status makeFolders(const std::filesystem::path& folder) {
  if (folder.empty())
    return okStatus();
  std::filesystem::path partial;
  for (const auto& part : folder) {
    partial /= part;
    if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
      return fileError("create the folder", partial, errno);
    }
  }
  return okStatus();
}

Status writeAll(int fd, std::string_view contents, const std::filesystem::path& path) {
  while (!contents.empty()) {
    const ssize_t written = ::write(fd, contents.data(), contents.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written < 0)
      return fileError("write", path, errno);
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
  return okStatus();
}

void syncFolder(const std::filesystem::path& folder) {
  const UniqueFd fd(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.isValid())
    ::fsync(fd.get());
}

// Opening a FIFO for reading would wait for a writer, and a device may never end: the open does
// not block, and only a regular file passes.
Result<UniqueFd> openRegularFile(const std::filesystem::path& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd.isValid())
    return fileError("open", path, errno);
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0)
    return fileError("examine", path, errno);
  if (!S_ISREG(info.st_mode)) {
    return Error::editor(EINVAL,
                         fmt::format("Could not open \"{}\": not a regular file", path.string()));
  }
  return fd;
}

}  // namespace

Status writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                           mode_t mode, AtomicWriteInterruption interruption) {
  const std::filesystem::path folder = path.parent_path();
  if (Status made = makeFolders(folder); !made)
    return made;

  std::string pattern = (folder / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  UniqueFd fd(::mkostemp(name.data(), O_CLOEXEC));
  if (!fd.isValid())
    return fileError("create a temporary file beside", path, errno);
  const std::filesystem::path temporary(name.data());

  const auto discard = [&](Error error) {
    fd.reset();
    ::unlink(temporary.c_str());
    return Status(std::move(error));
  };
  if (::fchmod(fd.get(), mode) != 0)
    return discard(fileError("set the mode of", temporary, errno));
  if (interruption == AtomicWriteInterruption::failHalfWay) {
    if (Status half = writeAll(fd.get(), contents.substr(0, contents.size() / 2), temporary);
        !half) {
      return discard(half.error());
    }
    return discard(fileError("write", temporary, ENOSPC));
  }
  if (Status written = writeAll(fd.get(), contents, temporary); !written) {
    return discard(written.error());
  }
  if (::fsync(fd.get()) != 0)
    return discard(fileError("flush", temporary, errno));
  fd.reset();
  if (interruption == AtomicWriteInterruption::crashBeforeRename) {
    return fileError("rename", temporary, EINTR);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    return fileError("replace", path, error);
  }
  syncFolder(folder);
  return okStatus();
}

Status checkRegularFile(const std::filesystem::path& path) {
  Result<UniqueFd> opened = openRegularFile(path);
  if (!opened)
    return opened.error();
  return okStatus();
}

Result<std::optional<std::string>> readWholeFile(const std::filesystem::path& path,
                                                 std::size_t maxBytes) {
  Result<UniqueFd> opened = openRegularFile(path);
  if (!opened && opened.error().code == ENOENT)
    return std::optional<std::string>();
  if (!opened)
    return opened.error();
  std::string contents;
  char buffer[64 * 1024];
  while (true) {
    const ssize_t got = ::read(opened->get(), buffer, sizeof buffer);
    if (got == 0)
      return std::optional<std::string>(std::move(contents));
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0)
      return fileError("read", path, errno);
    if (static_cast<std::size_t>(got) > maxBytes - contents.size()) {
      return Error::editor(EFBIG, fmt::format("Could not read \"{}\": larger than {} bytes",
                                              path.string(), maxBytes));
    }
    contents.append(buffer, static_cast<std::size_t>(got));
  }
}

}  // namespace orvan::editor
