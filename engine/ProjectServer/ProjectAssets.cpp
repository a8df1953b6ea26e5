#include "ProjectServer/ProjectAssets.h"

#include <algorithm>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include "ProjectServer/Digest.h"
#include "ServerClient/Records/ProjectAssetKind.h"

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

}  // namespace

ProjectFileScan scanProjectFiles(const fs::path& root) {
  ProjectFileScan scan;
  std::uint64_t signature = fnv1a64(root.string());
  std::error_code error;
  fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, error);
  for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
    const fs::directory_entry& entry = *it;
    const std::string name = entry.path().filename().string();
    std::error_code typeError;
    const bool link = entry.is_symlink(typeError);
    if (!link && entry.is_directory(typeError)) {
      if (name.starts_with('.'))
        it.disable_recursion_pending();
      continue;
    }
    if (name.starts_with('.') || (it.depth() == 0 && name == "project.json"))
      continue;
    if (link && !linkStaysInside(entry.path(), root))
      continue;
    struct stat status {};
    if (::stat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode))
      continue;
    ScannedFile file{.path = entry.path().lexically_relative(root).generic_string(),
                     .modifiedNanoseconds = nanoseconds(status.st_mtim),
                     .size = static_cast<std::int64_t>(status.st_size)};
    signature = fnv1a64(file.path, signature);
    signature = fnv1a64(std::to_string(file.modifiedNanoseconds) + '/' + std::to_string(file.size),
                        signature);
    scan.files.push_back(std::move(file));
  }
  scan.signature = signature;
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
