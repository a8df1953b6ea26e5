#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Authoring/AtomicOperation.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/PreparedStage.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// Finds a prim of the stage the rules look at; null when there is none.
using PrimLookup = std::function<const UsdPrimDetail*(std::string_view path)>;

// Which prims the hierarchy may change, and the read-only rule of USD instances: a prim below an
// instance root is part of the instance and cannot be edited, while the root itself can.
class HierarchyEditRules {
 public:
  HierarchyEditRules(PrimLookup prim, std::function<bool(std::string_view)> isStorePreview)
      : prim_(std::move(prim)), isStorePreview_(std::move(isStorePreview)) {}

  // Scene prims only: not "/World", not internal, component or asset rows, not instance proxies,
  // not store previews placed in the scene.
  bool canEditHierarchyPrim(const UsdPrimDetail& prim) const;
  bool canEditHierarchyPath(std::string_view path) const;
  // Rows that hold scene prims may receive others; internal, component and asset rows may not.
  static bool isSceneContentRow(const UsdPrimDetail& prim);

  // The nearest ancestor that is an instance root; the path itself is not tested.
  std::optional<std::string> instanceRootPathLocking(std::string_view path) const;
  // The same, but the path itself counts first: adding under an instance root is refused.
  std::optional<std::string> instanceRootPathLockingParent(std::string_view path) const;
  bool isInstanceProxyPath(std::string_view path) const;

  std::string instanceProxyRefusalStatus(std::string_view path) const;
  std::string instanceInsertRefusalStatus(std::string_view parentPath) const;

  // The refusal text for an operation, or none when it may go.
  std::optional<std::string> instanceGateRefusal(const PrimAtomicOperation& operation) const;
  std::optional<std::string> instanceGateRefusal(const AtomicOperation& operation) const;

  const UsdPrimDetail* prim(std::string_view path) const { return prim_(path); }

 private:
  bool isInstanceRoot(std::string_view path) const;
  // Proxy flag set, or an instance root above it.
  bool isLockedByInstance(std::string_view path) const;

  PrimLookup prim_;
  std::function<bool(std::string_view)> isStorePreview_;
};

// The rules over a stage as the editor shows it; the store previews come from the document.
HierarchyEditRules hierarchyEditRulesFor(std::shared_ptr<const PreparedStage> stage,
                                         const DocumentPublisher& documents);

}  // namespace orvan::editor
