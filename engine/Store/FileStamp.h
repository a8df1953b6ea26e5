#pragma once

#include <cstdint>
#include <string>

#include "Store/StoreError.h"

namespace orvan::engine {

// The cheap signature of a file: whether it is there, its size, its modification time in
// nanoseconds since the Unix epoch and its inode. Every atomic write-back makes a new inode, so an
// editor that rewrites the file in place within the same clock tick as the server's own write
// still shows a different stamp.
struct FileStamp {
  bool exists = false;
  std::uint64_t size = 0;
  std::int64_t modifiedNanoseconds = 0;
  std::uint64_t inode = 0;

  bool operator==(const FileStamp&) const = default;
};

FileStamp stampOf(const std::string& path);

// The whole content of a regular file; an error names the file and the reason.
StoreResult<std::string> readFileText(const std::string& path);

}  // namespace orvan::engine
