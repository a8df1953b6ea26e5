#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "orvan/wire/records/ProjectAssetItem.h"

namespace orvan::engine {

// One file of a project as a scan of its folder found it.
struct ScannedFile {
  std::string path = {};  // relative to the root, "/" between segments
  std::int64_t modifiedNanoseconds = 0;
  std::int64_t size = 0;
};

// The files of a project folder and a digest of what was seen: every file's path, modification
// time and size. A change to any file, and any file added or removed, changes the digest; so does
// a folder listed in another order, which only costs one listing more.
struct ProjectFileScan {
  std::vector<ScannedFile> files = {};
  std::uint64_t signature = 0;
};

// Walks the folder with one status call per file. Hidden files and folders (a name starting with
// ".") and the project's own `project.json` are left out. A symbolic link counts as the file it
// leads to when that is a regular file inside the root; a link that leads out of the root, to a
// folder, or nowhere is left out, so the listing never shows anything beyond the project.
ProjectFileScan scanProjectFiles(const std::filesystem::path& root);

// The asset rows of a scan, sorted by path in byte order: `path` relative to the root, `folder`
// its folder ("" at the root), `kind` the editor's kind word for the file, and `sourceGeneration`
// the file's modification time and size, so that a row changes whenever its file does.
std::vector<editor::ProjectAssetItem> projectAssetRows(const ProjectFileScan& scan);

inline std::vector<editor::ProjectAssetItem> listProjectAssets(const std::filesystem::path& root) {
  return projectAssetRows(scanProjectFiles(root));
}

}  // namespace orvan::engine
