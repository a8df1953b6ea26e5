#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#include "Foundation/Observable.h"
#include "Presentation/EditorClientDocument.h"
#include "Presentation/ProjectAssetSelection.h"

namespace orvan::editor {

// A project asset row with what the stage and the store know of it.
struct ProjectAssetPresentationRecord {
  ProjectAssetItem asset;
  std::optional<UsdAsset> stageAsset;
  std::optional<UsdAsset> storeLinkedAsset;
  std::optional<StoreCatalogItem> storeItem;

  bool operator==(const ProjectAssetPresentationRecord&) const = default;
};

struct MaterialPresentationRecord {
  UsdAsset asset;
  bool operator==(const MaterialPresentationRecord&) const = default;
};

struct StorePresentationRecord {
  StoreCatalogItem item;
  bool operator==(const StorePresentationRecord&) const = default;
};

// A prim as a row shows it. It points into the document it was read from.
struct PrimPresentationRecord {
  const UsdPrimDetail* prim = nullptr;
  bool operator==(const PrimPresentationRecord&) const = default;
};

// What the inspector shows for a selected asset: a project asset row, or a material of the stage.
using InspectorPresentationRecord =
    std::variant<ProjectAssetPresentationRecord, MaterialPresentationRecord>;

// The narrow read model of the interface: small records by path, the selected asset and the
// inspector's record, rebuilt from each published document.
class EditorPresentationStore {
 public:
  Observable<std::optional<ProjectAssetSelection>> selectedAsset;
  Observable<std::optional<InspectorPresentationRecord>> inspectorRecord;

  std::unordered_map<std::string, ProjectAssetPresentationRecord> projectAssetRecordsByPath;
  std::unordered_map<std::string, MaterialPresentationRecord> materialRecordsByPath;
  std::unordered_map<std::string, StorePresentationRecord> storeRecordsByURI;
  std::unordered_set<std::string> storeLinkedProjectAssetPaths;

  // Prim records are read straight from the document's own index: a stage of many thousands of
  // prims is not copied into a second dictionary on the main thread.
  std::optional<PrimPresentationRecord> primRecord(std::string_view path) const;

  // Rebuilds every dictionary from `document`, then reconciles the selection with them.
  void rebuild(std::shared_ptr<const EditorClientDocumentSnapshot> document);
  // A selected asset whose record has gone is cleared; the inspector's record is read anew.
  void reconcileSelectionAfterDataUpdate();

 private:
  std::optional<InspectorPresentationRecord> recordFor(
      const ProjectAssetSelection& selection) const;

  std::shared_ptr<const EditorClientDocumentSnapshot> document_ =
      EditorClientDocumentSnapshot::empty();
};

}  // namespace orvan::editor
