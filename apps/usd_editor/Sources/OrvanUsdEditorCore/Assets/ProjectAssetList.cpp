#include "Assets/ProjectAssetList.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <system_error>

#include "orvan/wire/Text.h"
#include "orvan/wire/records/ProjectAssetKind.h"

namespace orvan::editor {
namespace {

constexpr std::array<std::string_view, 4> kGeneratedRootFolders{"Contents", "Build", "Cooked",
                                                                ".derived"};

bool isGeneratedRootFolder(std::string_view name) {
  return std::find(kGeneratedRootFolders.begin(), kGeneratedRootFolders.end(), name) !=
         kGeneratedRootFolders.end();
}

ProjectAssetItem rowFor(const std::filesystem::path& relative) {
  const std::string path = relative.generic_string();
  return ProjectAssetItem{.path = path,
                          .name = relative.filename().string(),
                          .folder = relative.parent_path().generic_string(),
                          .kind = projectAssetKind(path)};
}

bool pathOrderIgnoringCase(const ProjectAssetItem& a, const ProjectAssetItem& b) {
  const std::string left = lowercased(a.path);
  const std::string right = lowercased(b.path);
  return left != right ? left < right : a.path < b.path;
}

}  // namespace

std::vector<ProjectAssetItem> projectAssetList(const std::filesystem::path& projectRoot) {
  namespace fs = std::filesystem;
  std::vector<ProjectAssetItem> rows;
  std::error_code error;
  fs::recursive_directory_iterator it(projectRoot, fs::directory_options::skip_permission_denied,
                                      error);
  for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
    const fs::directory_entry& entry = *it;
    const std::string name = entry.path().filename().string();
    const bool atRoot = it.depth() == 0;
    std::error_code statusError;
    if (entry.is_directory(statusError)) {
      if (name.starts_with('.') || (atRoot && isGeneratedRootFolder(name))) {
        it.disable_recursion_pending();
      }
      continue;
    }
    if (name.starts_with('.') || (atRoot && name == "project.json"))
      continue;
    if (!entry.is_regular_file(statusError))
      continue;
    rows.push_back(rowFor(entry.path().lexically_relative(projectRoot)));
  }
  std::sort(rows.begin(), rows.end(), pathOrderIgnoringCase);
  return rows;
}

}  // namespace orvan::editor
