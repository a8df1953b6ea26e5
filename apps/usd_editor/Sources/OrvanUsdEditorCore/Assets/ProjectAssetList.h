#pragma once

#include <filesystem>
#include <vector>

#include "orvan/wire/records/ProjectAssetItem.h"

namespace orvan::editor {

// The asset rows of a project folder on disk, for projects opened without a server. Each file
// gives a row whose `path` is relative to the root with "/" between segments, whose `name` is the
// file name, whose `folder` is the relative folder ("" at the root) and whose `kind` comes from
// the extension. Hidden files and folders are left out, and so are the project's own
// "project.json" and the generated folders "Contents", "Build", "Cooked" and ".derived" at the
// root (folders of those names deeper down are the user's). Rows are sorted by path without
// regard to case. A folder that cannot be read, in whole or in part, gives what could be read.
std::vector<ProjectAssetItem> projectAssetList(const std::filesystem::path& projectRoot);

}  // namespace orvan::editor
