#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "orvan/wire/Error.h"

namespace orvan::editor {

// Ways an atomic write can be interrupted, so that tests can show the old file survives them.
enum class AtomicWriteInterruption {
  none,
  // The disk fills half-way through the temporary file: an error, and the temporary file goes.
  failHalfWay,
  // The process dies after the temporary file was written but before the rename: the temporary
  // file is left behind exactly as a crash would leave it.
  crashBeforeRename,
};

// Replaces `path` with `contents` so that a reader (or the next start after a crash) sees either
// the old file or the new one, never a mix: a temporary file in the same folder is written,
// flushed to disk and renamed over the target, and the folder is flushed too. Missing parent
// folders are created with mode 0700; the file gets `mode`.
Status writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                           mode_t mode,
                           AtomicWriteInterruption interruption = AtomicWriteInterruption::none);

// The whole file, or nothing when it does not exist. Only a regular file is read: a FIFO, a device
// or a folder fails at once, without waiting, and so does a file of more than `maxBytes`.
inline constexpr std::size_t kDefaultMaxFileBytes = std::size_t{16} << 20;
Result<std::optional<std::string>> readWholeFile(const std::filesystem::path& path,
                                                 std::size_t maxBytes = kDefaultMaxFileBytes);

// Whether `path` is a regular file (after links), found out without blocking on what it is. Fails
// with a reason ("not a regular file", or why it could not be opened).
Status checkRegularFile(const std::filesystem::path& path);

}  // namespace orvan::editor
