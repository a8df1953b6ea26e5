#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>

#include "Presentation/HierarchyIndex.h"
#include "ServerClient/Records/StageInspection.h"

namespace orvan::editor {

// A stage together with the indexes every reader needs, built once per stage off the main thread
// so that applying a stage on the main thread is a pointer swap.
struct PreparedStage {
  std::shared_ptr<const StageInspection> inspection;
  std::shared_ptr<const HierarchyIndex> hierarchy;
  std::unordered_map<std::string_view, const UsdPrimDetail*> primsByPath;
  std::unordered_map<std::string_view, const UsdPrimDetail*> primsByEntityPath;

  static std::shared_ptr<const PreparedStage> prepare(StageInspection stage);
  static std::shared_ptr<const PreparedStage> empty();

  const StageInspection& stage() const { return *inspection; }
  const UsdPrimDetail* prim(std::string_view path) const;
};

}  // namespace orvan::editor
