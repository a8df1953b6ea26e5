#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor::testing {

// A stage of `rootCount` roots, each with `childrenPerRoot` children that each have
// `grandchildrenPerChild` children, with matching flat details. Names are "RootN", "ChildN"...
StageInspection makeTreeStage(std::size_t rootCount, std::size_t childrenPerRoot,
                              std::size_t grandchildrenPerChild);

UsdPrimDetail makePrimDetail(const std::string& path, const std::string& typeName);

// A tree node named after its path, its parent taken from the path; no children.
UsdPrimNode makePrimNode(const std::string& path, const std::string& typeName = "");
// Appends a flat detail named after its path, with the path as its entity path and no entity id,
// and gives it back for further fields.
UsdPrimDetail& addPrimDetail(StageInspection& stage, const std::string& path,
                             const std::string& typeName = "");

}  // namespace orvan::editor::testing
