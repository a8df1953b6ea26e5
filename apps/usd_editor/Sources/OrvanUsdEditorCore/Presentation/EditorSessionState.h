#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Foundation/Observable.h"
#include "Intelligence/AgentPromptController.h"
#include "Presentation/EditorSelectionSnapshot.h"
#include "Presentation/ProjectAssetSelection.h"

namespace orvan::editor {

struct SceneSelectionState {
  std::string primaryPath;
  std::vector<std::string> paths;
  std::uint64_t serial = 0;  // bumped on each application of a selection

  bool operator==(const SceneSelectionState&) const = default;
};

// What the inspector points at: a project asset, or the scene selection.
struct InspectorSceneSelectionTarget {
  bool operator==(const InspectorSceneSelectionTarget&) const = default;
};
using InspectorTarget = std::variant<InspectorSceneSelectionTarget, ProjectAssetSelection>;

struct InspectorTargetState {
  InspectorTarget target = InspectorSceneSelectionTarget{};
  EditorSelectionSnapshot sceneSnapshot;

  bool operator==(const InspectorTargetState&) const = default;
};

struct ProjectAssetSelectionState {
  std::optional<ProjectAssetSelection> selection;

  bool operator==(const ProjectAssetSelectionState&) const = default;
};

enum class ViewportCameraMode { free, game };
enum class ViewportTransformTool { translate, rotate, scale };
enum class ViewportTransformSpace { world, local };
enum class ViewportFrameTarget { selection, all };

// A property value shown in the viewport before it is committed.
struct EditorViewportPropertyPreview {
  std::string entityPath;
  std::string componentType;
  std::string propertyName;
  std::string value;
  bool clear = false;

  bool operator==(const EditorViewportPropertyPreview&) const = default;
};

struct ViewportControls {
  ViewportCameraMode cameraMode = ViewportCameraMode::free;
  ViewportTransformTool transformTool = ViewportTransformTool::translate;
  ViewportTransformSpace transformSpace = ViewportTransformSpace::world;
  ViewportFrameTarget frameTarget = ViewportFrameTarget::selection;
  std::uint64_t frameSerial = 0;
  std::vector<std::string> selectedPaths;
  std::uint64_t propertyPreviewSerial = 0;
  std::vector<EditorViewportPropertyPreview> propertyPreviews;

  bool operator==(const ViewportControls&) const = default;
};

struct ViewportControlsState {
  ViewportControls controls;
  bool operator==(const ViewportControlsState&) const = default;
};

struct ViewportCommentMarker {
  std::string commentId;
  std::string primPath;
  bool operator==(const ViewportCommentMarker&) const = default;
};

struct ViewportCommentMarkerState {
  std::vector<ViewportCommentMarker> markers;
  bool operator==(const ViewportCommentMarkerState&) const = default;
};

// Whether a runtime viewport host is attached to the window.
struct RuntimeViewportHostStore {
  std::optional<std::uint64_t> hostView;
  bool operator==(const RuntimeViewportHostStore&) const = default;
};

// The selection, its inspector snapshot, read together.
struct SceneSelection {
  std::string primaryPath;
  std::vector<std::string> paths;
  EditorSelectionSnapshot snapshot;
};

// Small observable stores, one per concern, so that a view redraws only for the store it reads:
// a status change never redraws the hierarchy, a selection change never redraws the project pane.
class EditorSessionState {
 public:
  explicit EditorSessionState(AgentPromptController::Ports agentPromptPorts)
      : agentPrompt(std::move(agentPromptPorts)) {}
  EditorSessionState(const EditorSessionState&) = delete;
  EditorSessionState& operator=(const EditorSessionState&) = delete;

  Observable<SceneSelectionState> sceneSelection;
  Observable<InspectorTargetState> inspector;
  Observable<ProjectAssetSelectionState> projectAssetSelection;
  Observable<ViewportControlsState> viewport;
  Observable<ViewportCommentMarkerState> viewportCommentMarkers;
  Observable<RuntimeViewportHostStore> runtimeViewportHost;
  // The prompt bar: request, provider and model, and the run of the local agent.
  AgentPromptController agentPrompt;

  // Writes the selection, bumps and returns its serial, and when asked points the inspector at
  // the scene.
  std::uint64_t applySceneSelection(std::string primaryPath, std::vector<std::string> paths,
                                    bool showInspector);
  // Selects a project asset and points the inspector at it.
  void applyProjectAssetSelection(ProjectAssetSelection selection);
  // Stores the inspector snapshot of a selection, unless a newer selection came meanwhile.
  bool replaceSceneSelectionSnapshot(EditorSelectionSnapshot snapshot,
                                     std::uint64_t expectedSerial);
  SceneSelection selection() const;
};

}  // namespace orvan::editor
