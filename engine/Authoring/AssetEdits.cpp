// Asset operations on the scene's asset library: meshes under /World/OrvanAssets/Meshes (each a
// prim that references the mesh's file) and materials under /World/OrvanAssets/Materials.
#include <algorithm>

#include "Authoring/LayerFragments.h"
#include "Authoring/PlanContext.h"
#include "Authoring/ValueText.h"
#include "UsdText/Value.h"

namespace orvan::engine {
namespace {

constexpr std::string_view kLibrary = "/World/OrvanAssets";

std::optional<std::string> libraryFolder(std::string_view kind) {
  if (kind == "mesh")
    return std::string(kLibrary) + "/Meshes";
  if (kind == "material")
    return std::string(kLibrary) + "/Materials";
  return std::nullopt;
}

// Defines the library's folders that the scene does not have yet, as Scopes.
Refusal ensureFolders(PlanContext& context, const std::string& folder) {
  if (!context.primExists("/World"))
    return std::string("No prim at /World");
  for (const std::string& path : {std::string(kLibrary), folder}) {
    if (context.primExists(path))
      continue;
    const std::string parent(parentPathOf(path));
    if (Refusal refused = context.ensureAuthoredPrim(context.layerId, parent))
      return refused;
    if (context.layerOf(context.layerId).findPrim(path) != kNoPrim) {
      // An over without a definition: the folder itself is made a Scope.
      if (Refusal refused = context.removePrim(context.layerId, path))
        return refused;
    }
    const std::string text =
        canonicalLayerText("#usda 1.0\ndef Scope \"" + std::string(nameOf(path)) + "\" {\n}\n");
    if (Refusal refused = context.insertPrim(context.layerId, path, text))
      return refused;
  }
  return std::nullopt;
}

Refusal replaceAsset(PlanContext& context, const EditOperation& operation, std::string& message) {
  const auto folder = libraryFolder(operation.assetKind);
  if (!folder)
    return "Assets of kind '" + operation.assetKind + "' are not kept in the scene";
  if (!isValidPrimName(operation.name))
    return "'" + operation.name + "' is not a valid asset name";
  if (operation.sourceURI.empty())
    return "The asset " + operation.name + " needs a source";
  if (Refusal refused = ensureFolders(context, *folder))
    return refused;
  const std::string path = childPath(*folder, operation.name);
  std::string text =
      "#usda 1.0\ndef " + std::string(operation.assetKind == "material" ? "Material " : "") + "\"" +
      operation.name + "\" (\nprepend references = " + encodeAssetLiteral(operation.sourceURI) +
      "\n)\n{\n";
  if (!operation.storeURI.empty())
    text += "custom string orvan:storeURI = " + encodeStringLiteral(operation.storeURI) + "\n";
  text += "}\n";
  text = canonicalLayerText(text);
  if (text.empty())
    return "The asset " + operation.name + " could not be written";
  const Layer& layer = context.layerOf(context.layerId);
  const std::uint32_t existing = layer.findPrim(path);
  if (existing == kNoPrim) {
    if (context.primExists(path))
      return "The asset " + operation.name + " comes from another layer; edit it there";
    if (Refusal refused = context.insertPrim(context.layerId, path, text))
      return refused;
    message = "Added asset " + operation.name;
    return std::nullopt;
  }
  const std::uint32_t parent = layer.prims[existing].parent;
  const auto& siblings = parent == kNoPrim ? layer.rootPrims : layer.prims[parent].children;
  LayerChange change;
  change.kind = ChangeKind::PrimSubtree;
  change.layer = context.relative(context.layerId);
  change.path = path;
  change.index = static_cast<std::uint32_t>(std::find(siblings.begin(), siblings.end(), existing) -
                                            siblings.begin());
  change.before = subtreeText(layer, existing);
  change.after = text;
  if (change.before == change.after) {
    message = "Asset " + operation.name + " is up to date";
    return std::nullopt;
  }
  if (Refusal refused = context.emit(std::move(change)))
    return refused;
  message = "Replaced asset " + operation.name;
  return std::nullopt;
}

Refusal removeAsset(PlanContext& context, const EditOperation& operation, std::string& message) {
  std::string path;
  for (const std::string_view kind : {"mesh", "material"}) {
    const std::string candidate = childPath(*libraryFolder(kind), operation.name);
    if (isValidPrimName(operation.name) && context.primExists(candidate)) {
      path = candidate;
      break;
    }
  }
  if (path.empty())
    return "No asset named " + operation.name + " in the scene";
  EditOperation remove;
  remove.type = OperationType::Prim;
  remove.kind = PrimOperationKind::Delete;
  remove.sourcePath = path;
  remove.parentPath = std::string(parentPathOf(path));
  if (Refusal refused = planPrimOperation(context, remove, message))
    return refused;
  message = "Removed asset " + operation.name;
  return std::nullopt;
}

}  // namespace

Refusal planAssetOperation(PlanContext& context, const EditOperation& operation,
                           std::string& message) {
  if (Refusal refused = context.activeLayerWritable())
    return refused;
  switch (operation.kindAs<AssetOperationKind>()) {
    case AssetOperationKind::Replace:
      return replaceAsset(context, operation, message);
    case AssetOperationKind::Remove:
      return removeAsset(context, operation, message);
  }
  return std::nullopt;
}

}  // namespace orvan::engine
