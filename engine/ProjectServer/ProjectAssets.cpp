#include "ProjectServer/ProjectAssets.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "ProjectServer/FileSignature.h"
#include "orvan/wire/records/ProjectAssetKind.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// Changes whenever the file does, as far as its modification time and size tell.
std::string generationOf(const fs::path& file) {
  const FileSignature signature = signatureOf(file.string());
  return std::to_string(signature.modifiedNanoseconds) + "-" + std::to_string(signature.size);
}

}  // namespace

std::vector<editor::ProjectAssetItem> listProjectAssets(const fs::path& root) {
  std::vector<editor::ProjectAssetItem> rows;
  std::error_code error;
  fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, error);
  for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
    const fs::directory_entry& entry = *it;
    const std::string name = entry.path().filename().string();
    std::error_code statusError;
    if (entry.is_directory(statusError)) {
      if (name.starts_with('.'))
        it.disable_recursion_pending();
      continue;
    }
    if (name.starts_with('.') || (it.depth() == 0 && name == "project.json") ||
        !entry.is_regular_file(statusError)) {
      continue;
    }
    const fs::path relative = entry.path().lexically_relative(root);
    const std::string path = relative.generic_string();
    rows.push_back(editor::ProjectAssetItem{.path = path,
                                            .name = name,
                                            .folder = relative.parent_path().generic_string(),
                                            .kind = editor::projectAssetKind(path),
                                            .sourceGeneration = generationOf(entry.path())});
  }
  std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
  return rows;
}

}  // namespace orvan::engine
