#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Paths inside a project: scene references that travel between machines, stage asset references
// made project-relative, and the folders asset rows are shown in. All of them use "/" between
// segments, whatever the platform wrote.
namespace orvan::editor {

// `scenePath` relative to `projectRoot`, with "\" turned into "/". A scene outside the root (or
// already relative, or with no root given) cannot be made relative: it comes back with only its
// slashes changed, so the caller still has something to send.
std::string portableProjectSceneReference(std::string_view projectRoot, std::string_view scenePath);

// The shortest form of a portable reference: without a leading "./", without everything up to
// and including the project package folder (a segment ending in ".orvanproject"), and with "."
// and ".." resolved as far as they go. A reference that starts with "/" or a drive ("C:/") stays
// absolute; a relative one keeps the ".." it cannot resolve.
std::string compactPortableProjectSceneReference(std::string_view reference);

// True when a compact reference names a file inside the project: relative and not climbing out.
bool isCompactProjectReference(std::string_view reference);

// A stage's asset reference as a path relative to the project, or nothing when it names no file
// of the project: prim references ("usdprim:..."), the "/World" prim tree, other schemes
// ("store://..."), folders (a trailing "/") and files outside the project root. "./" and "../" are
// resolved against the folder of the scene that refers to them; any other relative path is taken as
// project-relative. Files under ".derived/" are returned unchanged. For a package path
// ("Props/crate.usdz:tex.png", a ":" after the first segment) the package file is the project's
// file.
std::optional<std::string> projectRelativeStageAssetPath(std::string_view path,
                                                         std::string_view projectRoot,
                                                         std::string_view sceneReference);

// The folder an asset path lives in: the path's parent directory, project-relative without
// leading or trailing "/" ("" at the root), or `fallback` in the same form when the path has no
// directory part.
std::string canonicalProjectAssetFolder(std::string_view path, std::string_view fallback);

// `folder` when it is one of `availableFolders`; otherwise the available folder that is the same
// one spelled differently (case, slashes); otherwise the deepest available folder that contains
// it; otherwise `folder` as given. The root is never a match by containment: it holds everything.
std::string resolvedProjectAssetFolder(std::string_view folder,
                                       const std::vector<std::string>& availableFolders);

}  // namespace orvan::editor
