#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace orvan::editor {

// Whether a prim path is taken on the stage.
using PrimPathExists = std::function<bool(const std::string& path)>;

// Letters, digits and "_" stay; every other character becomes "_"; a leading digit gets "_" in
// front, since a prim name may not start with one.
std::string sanitizePrimName(std::string_view text);

// The name copies are numbered from: sanitised, without a "_copy" ending and without a "_<digits>"
// ending; "Prim" when nothing is left.
std::string duplicatePrimBaseName(std::string_view name);

// `parentPath` + "/" + `name`, with no doubled slash under "/".
std::string childPrimPath(std::string_view parentPath, std::string_view name);

// base_1, base_2, ...: the first whose path under `parentPath` is neither on the stage nor in
// `reservedPaths`. The winner's path is reserved, so several copies of one selection never
// collide.
std::string nextDuplicatePrimName(const std::string& base, const std::string& parentPath,
                                  const PrimPathExists& exists,
                                  std::unordered_set<std::string>& reservedPaths);

// The base itself when free, else base_1, base_2, ... as above.
std::string uniquePrimName(const std::string& base, const std::string& parentPath,
                           const PrimPathExists& exists,
                           std::unordered_set<std::string>& reservedPaths);

// The parent of a prim path: "/World" for "/World/Box", "" for a root or an empty path.
std::string parentPrimPath(std::string_view path);
// The last element of a prim path.
std::string primNameOfPath(std::string_view path);

}  // namespace orvan::editor
