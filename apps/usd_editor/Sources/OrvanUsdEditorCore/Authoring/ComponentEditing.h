#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/OperationQueue.h"
#include "Authoring/OptimisticOverlay.h"
#include "Authoring/PropertyDrafts.h"
#include "Foundation/Observable.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/EditorSessionState.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

enum class UiLayoutPreset { topLeft, topRight, bottomLeft, bottomRight, scale, fill };

struct UiLayoutPresetChoice {
  std::string title;
  UiLayoutPreset preset;
};
// The responsive layouts the inspector offers, in menu order.
const std::vector<UiLayoutPresetChoice>& uiLayoutPresetChoices();
inline constexpr std::string_view kUiLayoutPresetPrompt = "Choose behavior\u2026";
inline constexpr std::string_view kUiLayoutPresetHelp =
    "Edge anchors keep fixed-size controls on screen. Scaling converts pixel bounds to "
    "percentages of the nearest canvas.";

// The `set` operations that give one "UiLayout" component a preset; none for "scale" without a
// canvas resolution.
std::vector<ComponentAtomicOperation> uiLayoutPresetOperations(
    const std::string& entityPath, const UsdComponent& component, UiLayoutPreset preset,
    std::optional<std::pair<double, double>> referenceResolution);
// A component list with one type moved to a place among the components the inspector lists;
// none when it would not move.
std::optional<std::vector<std::string>> reorderedComponentTypes(
    const std::vector<UsdComponent>& components, std::string_view type, std::size_t toVisibleIndex);
// The local effect of a component operation on one prim's component list: added from the
// catalogue, removed, enabled, a value written, an override mark cleared by a reset.
void applyComponentOperationToPrim(UsdPrimDetail& prim, const ComponentAtomicOperation& operation,
                                   const std::vector<UsdComponent>& catalog);

// Commands on whole components: add, remove, enable, reorder, copy and paste, and the layout
// presets. Each fans out over the selection as one operation per entity, shows in the local
// stage at once and goes through the queue.
class ComponentEditing {
 public:
  struct Context {
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    EditorSessionState& session;
    DocumentPublisher& documents;
    OperationQueue& queue;
    StageRefresher& stageRefresher;
    PropertyDrafts& drafts;
    OptimisticOverlay& overlay;
    const EditorScope& scope;
    Observable<std::string>& status;
  };

  explicit ComponentEditing(Context context) : context_(context) {}
  ComponentEditing(const ComponentEditing&) = delete;
  ComponentEditing& operator=(const ComponentEditing&) = delete;

  // The copied component and what the status said about it.
  std::optional<UsdComponent> clipboard;

  void addComponent(const std::string& type);
  void removeComponent(const std::string& type);
  void setEnabled(const std::string& type, bool enabled);
  void reorderComponent(const std::string& type, std::size_t toVisibleIndex);
  void copyComponent(const UsdComponent& component);
  void pasteComponentSnapshot(const UsdComponent& component, const std::vector<std::string>& paths);
  void duplicateComponentToSelection(const UsdComponent& component, const std::string& sourcePath);
  void applyUiLayoutPreset(UiLayoutPreset preset);
  std::optional<std::pair<double, double>> uiCanvasReferenceResolution(std::string_view path) const;

  // Shows the operations in the local stage before any reply.
  void applyAcceptedComponentOperations(std::span<const ComponentAtomicOperation> operations);

 private:
  // The entities a command may touch, after the refusals; the last refusal goes to the status.
  std::vector<std::string> editableEntityPaths(const std::vector<std::string>& paths);
  std::vector<std::string> selectedEntityPaths() const;
  void queueComponentSnapshot(const UsdComponent& component, const std::vector<std::string>& paths);
  void queueAll(std::vector<ComponentAtomicOperation> operations);

  Context context_;
};

}  // namespace orvan::editor
