#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/EditClientSlot.h"
#include "Authoring/OperationQueue.h"
#include "Foundation/Observable.h"
#include "Launch/EditorScope.h"
#include "Platform/PreferencesStore.h"
#include "Presentation/PreparedStage.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

// A question the layer pane asks before a change that loses or moves content.
struct LayerConfirmation {
  std::string title;
  std::string text;
  std::string confirmTitle;

  bool operator==(const LayerConfirmation&) const = default;
};

// The layer under `identifier` in a stack listed strongest first; none for the last or unknown.
std::optional<UsdLayerInfo> layerBelow(const std::vector<UsdLayerInfo>& layers,
                                       std::string_view identifier);
bool canMergeLayerDown(const std::vector<UsdLayerInfo>& layers, const UsdLayerInfo& layer);
// The first editable layer that is not the root; else any editable one; else "".
std::string defaultEditLayerIdentifier(const std::vector<UsdLayerInfo>& layers);
// Where the active layer is remembered for a project, its folder and a workspace.
std::string activeLayerPreferenceKey(const SharedClientScope& scope);

// The layer pane's commands: add (with the one-time move of root content), remove, move, mute,
// clear, merge down, and the choice of the layer that receives edits. Layer operations run as
// one-shot helpers through the queue; the active layer is the editor's own choice, and each change
// of it retires the long-lived helper, which was started for the old one.
class LayerStackEditing {
 public:
  struct Context {
    PreferencesStore& preferences;
    EditorScope& scope;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    OperationQueue& queue;
    EditClientSlot& editClients;
    const StageRefresher& stageRefresher;
    Observable<std::string>& status;
  };

  explicit LayerStackEditing(Context context) : context_(context) {}
  LayerStackEditing(const LayerStackEditing&) = delete;
  LayerStackEditing& operator=(const LayerStackEditing&) = delete;

  // What the pane shows, changed ahead of the stage.
  Observable<std::vector<UsdLayerInfo>> layerPaneLayers;
  // While present, the queue holds everything back until a stage shows the added layer.
  std::optional<std::set<std::string>> pendingAddedLayerActivationPreviousIdentifiers;
  // The question on screen, if any; answered by `confirm` or `cancel`.
  Observable<std::optional<LayerConfirmation>> confirmation;

  const std::string& activeLayerIdentifier() const {
    return context_.scope.activeLayerIdentifier();
  }

  void addLayer(const std::string& name);
  void confirmRemoveLayer(const UsdLayerInfo& layer);
  void removeLayer(const UsdLayerInfo& layer);
  void moveLayer(const UsdLayerInfo& layer, const std::string& direction);
  void moveLayerToVisibleIndex(const UsdLayerInfo& layer, std::size_t index);
  void setLayerMuted(const UsdLayerInfo& layer, bool muted);
  void confirmClearLayer(const UsdLayerInfo& layer);
  void confirmMergeLayerDown(const UsdLayerInfo& layer);
  void mergeLayerDown(const UsdLayerInfo& layer);
  void setActiveLayer(const UsdLayerInfo& layer);
  // Whether an edit that needs `identifier` active may go ahead; switches to it when it can.
  bool activateLayerForOverride(const std::string& identifier);

  void confirm();
  void cancel();

  // ---- The queue and the refresher tell
  void operationAccepted(const AtomicOperation& operation);
  void rollBackOperation(const AtomicOperation& operation);
  void stageApplied();

 private:
  bool passesGates();
  bool canBeginLayerMutation();
  void queueLayerOperation(LayerAtomicOperation operation, std::string_view what);
  void queueLayerAdd(const std::string& name, bool moveRootContentToBaseLayer);
  // The refusal that keeps a layer from receiving edits, or none.
  std::optional<std::string> activationRefusal(const UsdLayerInfo& layer) const;
  // Steps after the checks: retire the helper, choose, remember, warm a new helper, say so.
  void activate(const std::string& identifier, const std::string& name, bool root);
  void reconcileActiveLayer();
  void activateAddedLayerAfterRefreshIfNeeded();
  void ask(LayerConfirmation question, std::function<void()> action);
  const std::vector<UsdLayerInfo>& stageLayers() const;

  Context context_;
  std::function<void()> confirmAction_;
};

}  // namespace orvan::editor
