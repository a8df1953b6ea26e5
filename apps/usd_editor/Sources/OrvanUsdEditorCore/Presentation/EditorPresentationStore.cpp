#include "Presentation/EditorPresentationStore.h"

namespace orvan::editor {

namespace {

template <class T>
std::optional<T> copyOf(const T* value) {
  return value ? std::optional<T>(*value) : std::nullopt;
}

}  // namespace

std::optional<PrimPresentationRecord> EditorPresentationStore::primRecord(
    std::string_view path) const {
  const UsdPrimDetail* prim = document_->prim(path);
  if (!prim)
    return std::nullopt;
  return PrimPresentationRecord{prim};
}

void EditorPresentationStore::rebuild(
    std::shared_ptr<const EditorClientDocumentSnapshot> document) {
  document_ = document ? std::move(document) : EditorClientDocumentSnapshot::empty();
  const EditorClientDocumentSnapshot& current = *document_;
  const PreparedStage& stage = *current.preparedStage;

  storeRecordsByURI.clear();
  for (const StoreCatalogItem* item : stage.sortedStoreItems) {
    storeRecordsByURI.try_emplace(item->uri, StorePresentationRecord{*item});
  }

  materialRecordsByPath.clear();
  for (const UsdAsset& material : current.materialAssets) {
    materialRecordsByPath.try_emplace(material.path, MaterialPresentationRecord{material});
  }

  projectAssetRecordsByPath.clear();
  storeLinkedProjectAssetPaths.clear();
  for (const ProjectAssetItem& asset : current.projectAssets) {
    ProjectAssetPresentationRecord record{asset, copyOf(current.stageAsset(asset.path)),
                                          copyOf(current.storeLinkedStageAsset(asset.path)),
                                          std::nullopt};
    // The store item is found by the store address of the asset the row stands for.
    const UsdAsset* linked = record.storeLinkedAsset
                                 ? &*record.storeLinkedAsset
                                 : (record.stageAsset ? &*record.stageAsset : nullptr);
    if (linked && !linked->storeURI.empty()) {
      if (const auto item = stage.storeItemsByURI.find(linked->storeURI);
          item != stage.storeItemsByURI.end()) {
        record.storeItem = *item->second;
      }
    }
    if (record.storeLinkedAsset)
      storeLinkedProjectAssetPaths.insert(asset.path);
    projectAssetRecordsByPath.try_emplace(asset.path, std::move(record));
  }
  reconcileSelectionAfterDataUpdate();
}

std::optional<InspectorPresentationRecord> EditorPresentationStore::recordFor(
    const ProjectAssetSelection& selection) const {
  if (const auto row = projectAssetRecordsByPath.find(selection.path);
      row != projectAssetRecordsByPath.end()) {
    return row->second;
  }
  if (const auto material = materialRecordsByPath.find(selection.path);
      material != materialRecordsByPath.end()) {
    return material->second;
  }
  return std::nullopt;
}

void EditorPresentationStore::reconcileSelectionAfterDataUpdate() {
  const std::optional<ProjectAssetSelection> selection = selectedAsset.get();
  if (!selection) {
    inspectorRecord.set(std::nullopt);
    return;
  }
  std::optional<InspectorPresentationRecord> record = recordFor(*selection);
  if (!record)
    selectedAsset.set(std::nullopt);
  inspectorRecord.set(std::move(record));
}

}  // namespace orvan::editor
