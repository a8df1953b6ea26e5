#include "ProjectServer/ProjectFolder.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <tuple>
#include <vector>

#include "orvan/wire/JsonDecoder.h"
#include "orvan/wire/JsonFields.h"
#include "orvan/wire/Text.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

// What a project's own `project.json` may say; every key is optional.
struct ProjectManifest {
  std::optional<std::string> id = {};
  std::optional<std::string> name = {};
  std::optional<std::string> mainScene = {};

  bool operator==(const ProjectManifest&) const = default;
  static auto jsonFields() {
    using T = ProjectManifest;
    return std::tuple{editor::json::optional("id", &T::id),
                      editor::json::optional("name", &T::name),
                      editor::json::optional("mainScene", &T::mainScene)};
  }
};

using ManifestResult = editor::Result<ProjectManifest, std::string>;

ManifestResult readManifest(const fs::path& file) {
  std::error_code error;
  if (!fs::exists(file, error))
    return ProjectManifest{};
  std::ifstream in(file, std::ios::binary);
  if (!in)
    return file.string() + ": cannot be read";
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  editor::Result<ProjectManifest> decoded = editor::decodeJson<ProjectManifest>(text, "project");
  if (!decoded.ok())
    return file.string() + ": " + decoded.error().description;
  return std::move(*decoded);
}

bool isInside(const fs::path& root, const fs::path& candidate) {
  const auto [rootEnd, candidateAt] =
      std::mismatch(root.begin(), root.end(), candidate.begin(), candidate.end());
  return rootEnd == root.end();
}

bool isRegularFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// The first `.usda` file at the top level, in byte order of the names; hidden files do not count.
std::optional<std::string> firstTopLevelScene(const fs::path& root) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (!name.starts_with('.') && editor::hasSuffix(editor::lowercased(name), ".usda") &&
        isRegularFile(it->path())) {
      names.push_back(name);
    }
  }
  if (names.empty())
    return std::nullopt;
  return *std::min_element(names.begin(), names.end());
}

std::string usableName(const std::optional<std::string>& given, const std::string& fallback) {
  if (!given || editor::isBlank(*given))
    return fallback;
  return editor::trimmed(*given);
}

}  // namespace

editor::Result<ProjectFolder, std::string> loadProjectFolder(const fs::path& folder) {
  std::error_code error;
  const fs::path root = fs::canonical(folder, error);
  if (error || !fs::is_directory(root, error))
    return "project folder " + folder.string() + " does not exist or is not a folder";

  ManifestResult manifest = readManifest(root / "project.json");
  if (!manifest.ok())
    return manifest.error();

  ProjectFolder project;
  project.root = root;
  const std::string folderName = root.filename().string();
  project.id = usableName(manifest->id, folderName);
  project.name = usableName(manifest->name, folderName);

  if (manifest->mainScene && !editor::isBlank(*manifest->mainScene)) {
    const std::optional<std::string> scene = resolveProjectScene(project, *manifest->mainScene);
    if (!scene) {
      return (root / "project.json").string() + ": the main scene '" + *manifest->mainScene +
             "' is not a file inside the project folder";
    }
    project.mainScene = *scene;
    return project;
  }
  const std::optional<std::string> first = firstTopLevelScene(root);
  if (!first)
    return "project folder " + root.string() + " has no .usda scene at its top level";
  project.mainScene = *first;
  return project;
}

std::optional<std::string> resolveProjectScene(const ProjectFolder& project,
                                               std::string_view reference) {
  std::string text = editor::trimmed(reference);
  std::replace(text.begin(), text.end(), '\\', '/');
  if (text.empty())
    return std::nullopt;
  const fs::path given(text);
  const fs::path joined = given.is_absolute() ? given : project.root / given;
  std::error_code error;
  // Symbolic links are resolved first, so a link that leads out of the folder is refused too.
  const fs::path resolved = fs::weakly_canonical(joined, error);
  if (error || !isInside(project.root, resolved) || resolved == project.root ||
      !isRegularFile(resolved)) {
    return std::nullopt;
  }
  return resolved.lexically_relative(project.root).generic_string();
}

bool isProjectRoot(const ProjectFolder& project, std::string_view path) {
  const std::string text = editor::trimmed(path);
  if (text.empty())
    return false;
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(fs::path(text), error);
  return !error && resolved == project.root;
}

}  // namespace orvan::engine
