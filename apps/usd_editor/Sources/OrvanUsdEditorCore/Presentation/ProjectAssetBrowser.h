#pragma once

#include <string>
#include <vector>

#include "Presentation/EditorClientDocument.h"

namespace orvan::editor {

// How the project pane groups its assets: by kind, or by the folders of the project.
enum class ProjectAssetBrowserOrganization { typeAndClass, folders };

// One group of the project pane, its assets in the document's order.
struct ProjectAssetBrowserGroup {
  std::string title;
  std::vector<const ProjectAssetItem*> assets;
};

// The project pane's groups for `document`. By kind, groups follow a fixed order of kinds (scenes
// first, plain files last; kinds the editor does not know come before plain files, by name). By
// folder, the project's top level comes first, titled "Project", then the folders in order. Empty
// groups are left out. The rows point into `document`.
std::vector<ProjectAssetBrowserGroup> projectAssetBrowserGroups(
    const EditorClientDocumentSnapshot& document, ProjectAssetBrowserOrganization organization);

}  // namespace orvan::editor
