#include "Assets/ProjectAssetPaths.h"

#include <algorithm>

#include "orvan/wire/Text.h"

namespace orvan::editor {
namespace {

constexpr std::string_view kProjectPackageSuffix = ".orvanproject/";

std::string withForwardSlashes(std::string_view path) {
  std::string out(path);
  std::replace(out.begin(), out.end(), '\\', '/');
  return out;
}

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool startsWithDrive(std::string_view path) {
  return path.size() >= 3 && isLetter(path[0]) && path[1] == ':' && path[2] == '/';
}

bool isAbsolutePath(std::string_view path) {
  return path.starts_with('/') || startsWithDrive(path);
}

// Resolves "." and ".." below a drive as below "/".
std::string standardizedKeepingDrive(std::string_view path) {
  if (!startsWithDrive(path))
    return standardizePath(path);
  return std::string(path.substr(0, 2)) + standardizePath(path.substr(2));
}

// `path` relative to `root` when it lies strictly below it; both already standardised.
std::optional<std::string> relativeBelow(std::string_view path, std::string_view root) {
  if (root.empty() || root == ".")
    return std::nullopt;
  if (root == "/") {
    if (path.size() > 1 && path.starts_with('/'))
      return std::string(path.substr(1));
    return std::nullopt;
  }
  if (path.size() > root.size() + 1 && path.starts_with(root) && path[root.size()] == '/') {
    return std::string(path.substr(root.size() + 1));
  }
  return std::nullopt;
}

// A folder in the form rows use: standardised, no leading "/", "" for the root.
std::string folderForm(std::string_view folder) {
  std::string out = standardizePath(withForwardSlashes(folder));
  const std::size_t first = out.find_first_not_of('/');
  out.erase(0, first == std::string::npos ? out.size() : first);
  return out == "." ? std::string() : out;
}

std::string parentFolder(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

bool containsFolderIgnoringCase(std::string_view ancestor, std::string_view folder) {
  return folder.size() > ancestor.size() && folder[ancestor.size()] == '/' &&
         equalsIgnoringCase(folder.substr(0, ancestor.size()), ancestor);
}

char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The last occurrence of the package folder suffix, compared without case. The suffix is ASCII,
// so a byte-wise comparison is exact whatever else the path holds.
std::size_t findLastPackageSuffix(std::string_view text) {
  const std::size_t length = kProjectPackageSuffix.size();
  for (std::size_t start = text.size(); start >= length; --start) {
    const std::string_view candidate = text.substr(start - length, length);
    if (std::equal(candidate.begin(), candidate.end(), kProjectPackageSuffix.begin(),
                   [](char a, char b) { return asciiLower(a) == b; })) {
      return start - length;
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::string portableProjectSceneReference(std::string_view projectRoot,
                                          std::string_view scenePath) {
  std::string scene = withForwardSlashes(scenePath);
  const std::string root = withForwardSlashes(projectRoot);
  if (isBlank(root) || scene.empty())
    return scene;
  const std::optional<std::string> relative =
      relativeBelow(standardizedKeepingDrive(scene), standardizedKeepingDrive(root));
  return relative.value_or(std::move(scene));
}

std::string compactPortableProjectSceneReference(std::string_view reference) {
  const std::string text = withForwardSlashes(reference);
  std::string_view rest = text;
  while (rest.starts_with("./"))
    rest.remove_prefix(2);

  const std::size_t package = findLastPackageSuffix(rest);
  if (package != std::string_view::npos) {
    rest.remove_prefix(package + kProjectPackageSuffix.size());
    while (rest.starts_with('/'))
      rest.remove_prefix(1);
  }
  if (rest.empty())
    return {};
  const std::string compact = standardizedKeepingDrive(rest);
  return compact == "." ? std::string() : compact;
}

bool isCompactProjectReference(std::string_view reference) {
  return !reference.empty() && !isAbsolutePath(reference) && reference != ".." &&
         !reference.starts_with("../");
}

std::optional<std::string> projectRelativeStageAssetPath(std::string_view path,
                                                         std::string_view projectRoot,
                                                         std::string_view sceneReference) {
  std::string text = withForwardSlashes(trimWhitespaceAndNewlines(path));
  if (text.empty() || text.ends_with('/') || text.starts_with("usdprim:"))
    return std::nullopt;
  if (text == "/World" || text.starts_with("/World/"))
    return std::nullopt;
  if (text.starts_with(".derived/"))
    return text;

  const std::size_t colon = text.find(':');
  if (colon != std::string::npos) {
    const std::size_t firstSlash = text.find('/');
    if (firstSlash != std::string::npos && colon > firstSlash) {
      text.erase(colon);  // the package holds the rest
    } else if (!startsWithDrive(text)) {
      return std::nullopt;  // a scheme, not a file
    }
  }

  if (text.starts_with("./") || text.starts_with("../")) {
    const std::string scene = portableProjectSceneReference(projectRoot, sceneReference);
    text = joinPath(parentFolder(scene), text);
  }
  const std::string standardized = standardizedKeepingDrive(text);
  if (isAbsolutePath(standardized)) {
    return relativeBelow(standardized,
                         standardizedKeepingDrive(withForwardSlashes(trimmed(projectRoot))));
  }
  if (!isCompactProjectReference(standardized) || standardized == ".")
    return std::nullopt;
  return standardized;
}

std::string canonicalProjectAssetFolder(std::string_view path, std::string_view fallback) {
  std::string normalized = withForwardSlashes(path);
  while (normalized.size() > 1 && normalized.back() == '/')
    normalized.pop_back();
  if (normalized.find('/') == std::string::npos)
    return folderForm(fallback);
  return folderForm(parentFolder(normalized));
}

std::string resolvedProjectAssetFolder(std::string_view folder,
                                       const std::vector<std::string>& availableFolders) {
  if (std::find(availableFolders.begin(), availableFolders.end(), folder) !=
      availableFolders.end()) {
    return std::string(folder);
  }
  const std::string wanted = folderForm(folder);
  for (const std::string& candidate : availableFolders) {
    if (equalsIgnoringCase(folderForm(candidate), wanted))
      return candidate;
  }
  const std::string* best = nullptr;
  std::size_t bestLength = 0;
  for (const std::string& candidate : availableFolders) {
    const std::string form = folderForm(candidate);
    if (!form.empty() && form.size() > bestLength && containsFolderIgnoringCase(form, wanted)) {
      best = &candidate;
      bestLength = form.size();
    }
  }
  return best != nullptr ? *best : std::string(folder);
}

}  // namespace orvan::editor
