#pragma once

#include <filesystem>
#include <vector>

#include "orvan/wire/records/ProjectAssetItem.h"

namespace orvan::engine {

// The asset rows of a hosted project: one per file below the root, at any depth, sorted by path
// in byte order. Hidden files and folders (a name starting with ".") and the project's own
// `project.json` are left out. `path` is relative to the root with "/" between segments, `folder`
// its folder ("" at the root), `kind` the editor's kind word for the file, and `sourceGeneration`
// the file's modification time and size, so that a row changes whenever its file does.
std::vector<editor::ProjectAssetItem> listProjectAssets(const std::filesystem::path& root);

}  // namespace orvan::engine
