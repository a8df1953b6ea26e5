#include "Presentation/EditorSessionState.h"

namespace orvan::editor {

std::uint64_t EditorSessionState::applySceneSelection(std::string primaryPath,
                                                      std::vector<std::string> paths,
                                                      bool showInspector) {
  const std::uint64_t serial = sceneSelection.get().serial + 1;
  sceneSelection.set(SceneSelectionState{std::move(primaryPath), std::move(paths), serial});
  if (showInspector) {
    inspector.update(
        [](InspectorTargetState& state) { state.target = InspectorSceneSelectionTarget{}; });
  }
  return serial;
}

void EditorSessionState::applyProjectAssetSelection(ProjectAssetSelection selection) {
  projectAssetSelection.set(ProjectAssetSelectionState{selection});
  inspector.update([&](InspectorTargetState& state) { state.target = std::move(selection); });
}

bool EditorSessionState::replaceSceneSelectionSnapshot(EditorSelectionSnapshot snapshot,
                                                       std::uint64_t expectedSerial) {
  if (sceneSelection.get().serial != expectedSerial)
    return false;
  inspector.update([&](InspectorTargetState& state) { state.sceneSnapshot = std::move(snapshot); });
  return true;
}

SceneSelection EditorSessionState::selection() const {
  const SceneSelectionState& state = sceneSelection.get();
  return SceneSelection{state.primaryPath, state.paths, inspector.get().sceneSnapshot};
}

}  // namespace orvan::editor
