#include "Presentation/ProjectAssetBrowser.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "Presentation/DisplayOrder.h"

namespace orvan::editor {

namespace {

constexpr std::array<std::string_view, 10> kKindOrder = {
    "USD", "USDZ", "Mesh", "Material", "Image", "Audio", "Animation", "Font", "Script", "Data"};
constexpr std::string_view kPlainFileKind = "File";
constexpr std::string_view kTopLevelTitle = "Project";

std::size_t kindRank(std::string_view kind) {
  const auto known = std::find(kKindOrder.begin(), kKindOrder.end(), kind);
  if (known != kKindOrder.end())
    return static_cast<std::size_t>(known - kKindOrder.begin());
  return kind == kPlainFileKind ? kKindOrder.size() + 1 : kKindOrder.size();
}

std::vector<ProjectAssetBrowserGroup> byKind(const EditorClientDocumentSnapshot& document) {
  std::map<std::string, std::vector<const ProjectAssetItem*>> kinds;
  for (const ProjectAssetItem& asset : document.projectAssets) {
    kinds[asset.kind.empty() ? std::string(kPlainFileKind) : asset.kind].push_back(&asset);
  }
  std::vector<ProjectAssetBrowserGroup> groups;
  for (auto& [kind, assets] : kinds)
    groups.push_back({kind, std::move(assets)});
  std::stable_sort(groups.begin(), groups.end(), [](const auto& left, const auto& right) {
    return kindRank(left.title) < kindRank(right.title);
  });
  return groups;
}

std::vector<ProjectAssetBrowserGroup> byFolder(const EditorClientDocumentSnapshot& document) {
  std::vector<ProjectAssetBrowserGroup> groups;
  for (const std::string& folder : document.projectFolders) {
    ProjectAssetBrowserGroup group{folder.empty() ? std::string(kTopLevelTitle) : folder,
                                   document.projectAssetsInFolder(folder)};
    if (group.assets.empty())
      continue;
    if (folder.empty()) {
      groups.insert(groups.begin(), std::move(group));
    } else {
      groups.push_back(std::move(group));
    }
  }
  return groups;
}

}  // namespace

std::vector<ProjectAssetBrowserGroup> projectAssetBrowserGroups(
    const EditorClientDocumentSnapshot& document, ProjectAssetBrowserOrganization organization) {
  switch (organization) {
    case ProjectAssetBrowserOrganization::typeAndClass:
      return byKind(document);
    case ProjectAssetBrowserOrganization::folders:
      return byFolder(document);
  }
  return {};
}

}  // namespace orvan::editor
