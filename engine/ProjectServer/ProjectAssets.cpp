#include "ProjectServer/ProjectAssets.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ProjectServer/Digest.h"
#include "orvan/wire/records/ProjectAssetKind.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

std::int64_t nanoseconds(const timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

bool inside(const fs::path& path, const fs::path& root) {
  const auto [rootEnd, pathAt] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
  return rootEnd == root.end();
}

// The regular file a symbolic link leads to, when it lies inside the root.
bool linkStaysInside(const fs::path& link, const fs::path& root) {
  std::error_code error;
  const fs::path target = fs::canonical(link, error);
  return !error && inside(target, root) && fs::is_regular_file(target, error);
}

// Walks one folder (open as `folder`, at `relative` below the root, "" for the root itself) and
// the folders below it. Names are taken from the folder's own listing and looked at relative to
// its descriptor, so a file costs one status call and no path resolution.
class FolderWalk {
 public:
  FolderWalk(const fs::path& root, ProjectFileScan& scan) : root_(root), scan_(scan) {}

  void walk(int folder, const std::string& relative) {
    DIR* listing = ::fdopendir(folder);
    if (listing == nullptr) {
      ::close(folder);
      return;
    }
    std::vector<std::string> subfolders;
    while (const dirent* entry = ::readdir(listing)) {
      const std::string_view name = entry->d_name;
      if (name.starts_with('.') || (relative.empty() && name == "project.json"))
        continue;
      const std::string path =
          relative.empty() ? std::string(name) : relative + "/" + std::string(name);
      if (entry->d_type == DT_DIR) {
        subfolders.emplace_back(name);
        continue;
      }
      if (entry->d_type == DT_LNK && !linkStaysInside(root_ / path, root_))
        continue;
      struct stat status {};
      const int flags = entry->d_type == DT_LNK ? 0 : AT_SYMLINK_NOFOLLOW;
      if (::fstatat(::dirfd(listing), entry->d_name, &status, flags) != 0)
        continue;
      // A listing that does not tell the type (DT_UNKNOWN) is answered by the status itself.
      if (S_ISDIR(status.st_mode) && entry->d_type == DT_UNKNOWN) {
        subfolders.emplace_back(name);
        continue;
      }
      if (!S_ISREG(status.st_mode))
        continue;
      add(ScannedFile{.path = path,
                      .modifiedNanoseconds = nanoseconds(status.st_mtim),
                      .size = static_cast<std::int64_t>(status.st_size)});
    }
    for (const std::string& name : subfolders) {
      const int child =
          ::openat(::dirfd(listing), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (child >= 0)
        walk(child, relative.empty() ? name : relative + "/" + name);
    }
    ::closedir(listing);
  }

 private:
  void add(ScannedFile file) {
    signature_ = fnv1a64(file.path, signature_);
    const std::int64_t stamp[2] = {file.modifiedNanoseconds, file.size};
    signature_ =
        fnv1a64(std::string_view(reinterpret_cast<const char*>(stamp), sizeof stamp), signature_);
    scan_.signature = signature_;
    scan_.files.push_back(std::move(file));
  }

  const fs::path& root_;
  ProjectFileScan& scan_;
  std::uint64_t signature_ = 0xcbf29ce484222325ull;
};

}  // namespace

ProjectFileScan scanProjectFiles(const fs::path& root) {
  ProjectFileScan scan;
  scan.signature = fnv1a64(root.string());
  const int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0)
    FolderWalk(root, scan).walk(folder, "");
  scan.signature = fnv1a64(root.string(), scan.signature);
  return scan;
}

std::vector<editor::ProjectAssetItem> projectAssetRows(const ProjectFileScan& scan) {
  std::vector<editor::ProjectAssetItem> rows;
  rows.reserve(scan.files.size());
  for (const ScannedFile& file : scan.files) {
    const fs::path relative(file.path);
    rows.push_back(editor::ProjectAssetItem{
        .path = file.path,
        .name = relative.filename().string(),
        .folder = relative.parent_path().generic_string(),
        .kind = editor::projectAssetKind(file.path),
        .sourceGeneration =
            std::to_string(file.modifiedNanoseconds) + "-" + std::to_string(file.size)});
  }
  std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
  return rows;
}

}  // namespace orvan::engine
