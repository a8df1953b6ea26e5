#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "orvan/wire/Error.h"

namespace orvan::engine {

// A project the server hosts: a folder on disk. An optional `project.json` in it names the project
// and its main scene ({"id": ..., "name": ..., "mainScene": "relative/path.usda"}); without one,
// or for the keys it leaves out, the id and name are the folder's name and the main scene is the
// first `.usda` file at the top level in byte order.
struct ProjectFolder {
  std::string id = {};
  std::string name = {};
  std::filesystem::path root = {};  // absolute, with symbolic links resolved
  std::string mainScene = {};       // relative to `root`, "/" between segments

  std::string rootPath() const { return root.string(); }
  std::filesystem::path absoluteScene(std::string_view relative) const { return root / relative; }
};

// Reads the folder and its `project.json`. Fails with a sentence that names the folder when it
// does not exist, when `project.json` is not what it should be, or when no usable main scene is
// there (missing, outside the folder, or not a file).
editor::Result<ProjectFolder, std::string> loadProjectFolder(const std::filesystem::path& folder);

// The scene a request names, relative to the project root with "/" between segments: a path
// relative to the root ("./" and "\\" allowed) or an absolute path inside it. Nothing when the
// path leaves the folder (through ".." or a symbolic link) or names no regular file.
std::optional<std::string> resolveProjectScene(const ProjectFolder& project,
                                               std::string_view reference);

// Whether `path` names the project's folder (absolute, or relative to the working directory).
bool isProjectRoot(const ProjectFolder& project, std::string_view path);

}  // namespace orvan::engine
