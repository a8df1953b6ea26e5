#pragma once

#include <string>
#include <string_view>

#include "Store/FileStamp.h"
#include "Store/StoreError.h"

namespace orvan::engine {

// A new content for a file, written to a temporary file in the same folder and synced to the disk,
// ready to replace the file with one rename. Until `commit` the file is untouched; a replacement
// that is never committed removes its temporary file. A reader of the file, and the file after a
// crash at any moment, holds either the whole old content or the whole new one.
class FileReplacement {
 public:
  static StoreResult<FileReplacement> prepare(const std::string& path, std::string_view content);
  FileReplacement(FileReplacement&& other) noexcept;
  FileReplacement& operator=(FileReplacement&&) = delete;
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  ~FileReplacement();

  // Renames the temporary file over the target and syncs the folder, so the rename itself is on
  // the disk when this returns. Gives the stamp of the file it wrote.
  StoreResult<FileStamp> commit();

  const std::string& temporaryPath() const { return temporary_; }

 private:
  FileReplacement(std::string path, std::string temporary)
      : path_(std::move(path)), temporary_(std::move(temporary)) {}

  std::string path_;
  std::string temporary_;
};

// prepare + commit in one call.
StoreResult<FileStamp> replaceFileAtomically(const std::string& path, std::string_view content);

// Whether a file name is one of the temporary files a replacement writes (`.NAME.orvan-new-...`);
// a crash may leave one behind, and nothing else ever reads them.
bool isReplacementTemporary(std::string_view fileName);

// Removes the temporary files of replacements in a folder that a crash left behind; call it before
// a writer starts there. How many it removed.
std::size_t removeReplacementTemporaries(const std::string& folder);

}  // namespace orvan::engine
