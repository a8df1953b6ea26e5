#include "Authoring/InstanceRules.h"

#include <algorithm>

#include "Authoring/PrimNames.h"

namespace orvan::editor {

namespace {

bool hasBadge(const UsdPrimDetail& prim, std::string_view badge) {
  return std::find(prim.badges.begin(), prim.badges.end(), badge) != prim.badges.end();
}

bool isTopOrEmpty(std::string_view path) {
  return path.empty() || path == "/World";
}

}  // namespace

bool HierarchyEditRules::isSceneContentRow(const UsdPrimDetail& prim) {
  return !hasBadge(prim, "internal") && !hasBadge(prim, "component") && !hasBadge(prim, "asset");
}

bool HierarchyEditRules::canEditHierarchyPrim(const UsdPrimDetail& prim) const {
  if (isTopOrEmpty(prim.path))
    return false;
  if (!isSceneContentRow(prim))
    return false;
  if (prim.instanceProxy.value_or(false))
    return false;
  return !isStorePreview_(prim.path);
}

bool HierarchyEditRules::canEditHierarchyPath(std::string_view path) const {
  const UsdPrimDetail* found = prim_(path);
  return found != nullptr && canEditHierarchyPrim(*found);
}

bool HierarchyEditRules::isInstanceRoot(std::string_view path) const {
  const UsdPrimDetail* found = prim_(path);
  return found != nullptr && found->instanceable.value_or(false) &&
         !found->instanceProxy.value_or(false);
}

std::optional<std::string> HierarchyEditRules::instanceRootPathLocking(
    std::string_view path) const {
  std::string ancestor = parentPrimPath(path);
  while (!ancestor.empty()) {
    if (isInstanceRoot(ancestor))
      return ancestor;
    ancestor = parentPrimPath(ancestor);
  }
  return std::nullopt;
}

std::optional<std::string> HierarchyEditRules::instanceRootPathLockingParent(
    std::string_view path) const {
  if (isInstanceRoot(path))
    return std::string(path);
  return instanceRootPathLocking(path);
}

bool HierarchyEditRules::isLockedByInstance(std::string_view path) const {
  const UsdPrimDetail* found = prim_(path);
  if (found != nullptr && found->instanceProxy.value_or(false))
    return true;
  return instanceRootPathLocking(path).has_value();
}

bool HierarchyEditRules::isInstanceProxyPath(std::string_view path) const {
  if (isTopOrEmpty(path))
    return false;
  return isLockedByInstance(path);
}

std::string HierarchyEditRules::instanceProxyRefusalStatus(std::string_view path) const {
  if (const std::optional<std::string> root = instanceRootPathLocking(path)) {
    return "Part of an instance \u2014 disable Instance on " + primNameOfPath(*root) +
           " to edit it";
  }
  return "Part of an instance and read-only";
}

std::string HierarchyEditRules::instanceInsertRefusalStatus(std::string_view parentPath) const {
  if (const std::optional<std::string> root = instanceRootPathLockingParent(parentPath)) {
    return "Can't add inside an instance \u2014 disable Instance on " + primNameOfPath(*root) +
           " first";
  }
  return "Can't add inside an instance";
}

std::optional<std::string> HierarchyEditRules::instanceGateRefusal(
    const PrimAtomicOperation& operation) const {
  switch (operation.kind) {
    case PrimOperationKind::deletePrim:
    case PrimOperationKind::rename:
    case PrimOperationKind::setInstanceable:
      if (isTopOrEmpty(operation.sourcePath))
        return std::nullopt;
      if (isLockedByInstance(operation.sourcePath))
        return instanceProxyRefusalStatus(operation.sourcePath);
      return std::nullopt;
    case PrimOperationKind::duplicate:
    case PrimOperationKind::reparent:
      if (isInstanceProxyPath(operation.sourcePath))
        return instanceProxyRefusalStatus(operation.sourcePath);
      if (instanceRootPathLockingParent(operation.parentPath))
        return instanceInsertRefusalStatus(operation.parentPath);
      return std::nullopt;
    case PrimOperationKind::add:
    case PrimOperationKind::reference:
    case PrimOperationKind::payload:
      if (instanceRootPathLockingParent(operation.parentPath))
        return instanceInsertRefusalStatus(operation.parentPath);
      return std::nullopt;
    case PrimOperationKind::reset:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> HierarchyEditRules::instanceGateRefusal(
    const AtomicOperation& operation) const {
  if (const PrimAtomicOperation* prim = operation.prim())
    return instanceGateRefusal(*prim);
  if (const ComponentAtomicOperation* component = operation.component()) {
    if (isTopOrEmpty(component->entityPath) || !isLockedByInstance(component->entityPath))
      return std::nullopt;
    return instanceProxyRefusalStatus(component->entityPath);
  }
  if (const UsdPropertyAtomicOperation* property = operation.usdProperty()) {
    if (property->kind == UsdPropertyOperationKind::set && isInstanceProxyPath(property->primPath))
      return instanceProxyRefusalStatus(property->primPath);
  }
  return std::nullopt;
}

HierarchyEditRules hierarchyEditRulesFor(std::shared_ptr<const PreparedStage> stage,
                                         const DocumentPublisher& documents) {
  return HierarchyEditRules(
      [stage = std::move(stage)](std::string_view path) { return stage->prim(path); },
      [&documents](std::string_view path) { return documents.isStorePreviewPath(path); });
}

}  // namespace orvan::editor
