#include "Authoring/LayerStackEditing.h"

#include <algorithm>
#include <filesystem>

#include "Launch/UserDefaultsKeys.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kBlank = " \t\r\n";

std::string trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos)
    return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlank) - first + 1));
}

bool isSystem(const UsdLayerInfo& layer) {
  return layer.system.value_or(false);
}

bool isEditable(const UsdLayerInfo& layer) {
  return layer.writable && !isSystem(layer) && !layer.muted;
}

std::string quoted(const std::string& name) {
  return "\"" + name + "\"";
}

}  // namespace

std::optional<UsdLayerInfo> layerBelow(const std::vector<UsdLayerInfo>& layers,
                                       std::string_view identifier) {
  for (std::size_t index = 0; index + 1 < layers.size(); ++index) {
    if (layers[index].identifier == identifier)
      return layers[index + 1];
  }
  return std::nullopt;
}

bool canMergeLayerDown(const std::vector<UsdLayerInfo>& layers, const UsdLayerInfo& layer) {
  if (layer.root || !isEditable(layer))
    return false;
  const std::optional<UsdLayerInfo> below = layerBelow(layers, layer.identifier);
  return below && isEditable(*below) && !below->root;
}

namespace {

// The stack's refusals, word for word; nothing when the command may go on.
std::optional<std::string> removeRefusal(const UsdLayerInfo& layer) {
  if (isSystem(layer))
    return "Workspace edit layer cannot be removed";
  if (layer.root)
    return "Root layer cannot be removed";
  return std::nullopt;
}

std::optional<std::string> moveRefusal(const UsdLayerInfo& layer) {
  if (isSystem(layer))
    return "Workspace edit layer cannot be moved";
  if (layer.root || !layer.writable)
    return "Root layer cannot be moved";
  return std::nullopt;
}

std::optional<std::string> mergeDownRefusal(const std::vector<UsdLayerInfo>& layers,
                                            const UsdLayerInfo& layer) {
  if (!layerBelow(layers, layer.identifier))
    return "No lower layer to merge into";
  if (!canMergeLayerDown(layers, layer))
    return "No editable layer below to merge into";
  return std::nullopt;
}

}  // namespace

std::string defaultEditLayerIdentifier(const std::vector<UsdLayerInfo>& layers) {
  for (const UsdLayerInfo& layer : layers) {
    if (!layer.root && isEditable(layer))
      return layer.identifier;
  }
  for (const UsdLayerInfo& layer : layers) {
    if (isEditable(layer))
      return layer.identifier;
  }
  return {};
}

std::string activeLayerPreferenceKey(const SharedClientScope& scope) {
  return std::string(defaults::kActiveLayerPrefix) + "|" + scope.project + "|" + scope.projectRoot +
         "|" + (scope.workspace.empty() ? std::string("main") : scope.workspace);
}

// ---- Gates

const std::vector<UsdLayerInfo>& LayerStackEditing::stageLayers() const {
  return context_.stage.get()->stage().layers;
}

bool LayerStackEditing::canBeginLayerMutation() {
  if (context_.queue.hooks.historyPreviewOpen()) {
    context_.status.set(std::string(authoring_status::kHistoryPreviewReadOnly));
    return false;
  }
  if (context_.scope.seamlessWorkspaceTransitionInFlight)
    return true;
  if (context_.queue.hooks.preserveViewportDuringTransition() &&
      context_.stageRefresher.stageRefreshInFlight) {
    context_.status.set("Finish opening the project before editing layers");
    return false;
  }
  return true;
}

bool LayerStackEditing::passesGates() {
  if (!context_.stage.get()->stage().usdLayersEnabled) {
    context_.status.set("USD layers are disabled in this build");
    return false;
  }
  return canBeginLayerMutation();
}

void LayerStackEditing::queueLayerOperation(LayerAtomicOperation operation, std::string_view what) {
  context_.queue.queue(AtomicOperation{std::move(operation)});
  context_.status.set(std::string(context_.queue.state.submitInFlight ? "Queued " : "Pending ") +
                      std::string(what));
  context_.queue.submitNextOperation();
}

void LayerStackEditing::ask(LayerConfirmation question, std::function<void()> action) {
  confirmAction_ = std::move(action);
  confirmation.set(std::move(question));
}

void LayerStackEditing::confirm() {
  std::function<void()> action = std::exchange(confirmAction_, nullptr);
  confirmation.set(std::nullopt);
  if (action)
    action();
}

void LayerStackEditing::cancel() {
  confirmAction_ = nullptr;
  confirmation.set(std::nullopt);
}

// ---- Commands

void LayerStackEditing::addLayer(const std::string& name) {
  if (!passesGates())
    return;
  const std::string layerName = trimmed(name);
  if (layerName.empty()) {
    context_.status.set("Layer name required");
    return;
  }
  if (!context_.stage.get()->stage().requiresLayerStackInitialization) {
    queueLayerAdd(layerName, false);
    return;
  }
  const std::string sceneFile = std::filesystem::path(context_.scope.scenePath()).filename();
  ask({.title = "Start Using Layers?",
       .text = "This scene currently stores all of its content directly in " + sceneFile +
               ". To add \"" + layerName +
               "\", Velk must first move that content into a new child layer named base.usda. "
               "This is a one-time change; the new layer will be added above it.",
       .confirmTitle = "Move Content and Add Layer"},
      [this, layerName] { queueLayerAdd(layerName, true); });
}

void LayerStackEditing::queueLayerAdd(const std::string& name, bool moveRootContentToBaseLayer) {
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::add;
  operation.name = name;
  operation.moveRootContentToBaseLayer = moveRootContentToBaseLayer;
  queueLayerOperation(std::move(operation), "layer edit");
}

void LayerStackEditing::confirmRemoveLayer(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (const auto refusal = removeRefusal(layer)) {
    context_.status.set(*refusal);
    return;
  }
  ask({.title = "Remove " + quoted(layer.name) + " Layer?",
       .text = "Remove " + quoted(layer.name) +
               " from the stack? The layer file will remain in the project.",
       .confirmTitle = "Remove"},
      [this, layer] { removeLayer(layer); });
}

void LayerStackEditing::removeLayer(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (const auto refusal = removeRefusal(layer)) {
    context_.status.set(*refusal);
    return;
  }
  layerPaneLayers.update([&](std::vector<UsdLayerInfo>& layers) {
    std::erase_if(layers,
                  [&](const UsdLayerInfo& each) { return each.identifier == layer.identifier; });
  });
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::remove;
  operation.identifier = layer.identifier;
  queueLayerOperation(std::move(operation), "layer removal");
}

void LayerStackEditing::moveLayer(const UsdLayerInfo& layer, const std::string& direction) {
  if (!passesGates())
    return;
  if (const auto refusal = moveRefusal(layer)) {
    context_.status.set(*refusal);
    return;
  }
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::move;
  operation.identifier = layer.identifier;
  operation.direction = direction;
  queueLayerOperation(std::move(operation), "layer move");
}

void LayerStackEditing::moveLayerToVisibleIndex(const UsdLayerInfo& layer, std::size_t index) {
  if (!passesGates())
    return;
  if (const auto refusal = moveRefusal(layer)) {
    context_.status.set(*refusal);
    return;
  }
  std::vector<UsdLayerInfo> layers = layerPaneLayers.get();
  const auto found = std::find_if(layers.begin(), layers.end(), [&](const UsdLayerInfo& each) {
    return each.identifier == layer.identifier;
  });
  if (found == layers.end())
    return;
  std::size_t lowest = 0;
  for (std::size_t position = 0; position < layers.size(); ++position) {
    if (layers[position].root)
      lowest = position + 1;
  }
  const std::size_t highest = layers.size() - 1;
  const std::size_t wanted = std::clamp(index, std::min(lowest, highest), highest);
  const std::size_t present = static_cast<std::size_t>(found - layers.begin());
  if (wanted == present)
    return;
  UsdLayerInfo moved = std::move(*found);
  layers.erase(found);
  layers.insert(layers.begin() + static_cast<std::ptrdiff_t>(wanted), std::move(moved));
  layerPaneLayers.set(std::move(layers));
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::move;
  operation.identifier = layer.identifier;
  operation.direction = "index:" + std::to_string(wanted);
  queueLayerOperation(std::move(operation), "layer move");
}

void LayerStackEditing::setLayerMuted(const UsdLayerInfo& layer, bool muted) {
  if (!passesGates())
    return;
  if (isSystem(layer)) {
    context_.status.set("Workspace edit layer is always enabled");
    return;
  }
  if (layer.root || !layer.writable) {
    context_.status.set("Root layer is always enabled");
    return;
  }
  layerPaneLayers.update([&](std::vector<UsdLayerInfo>& layers) {
    for (UsdLayerInfo& each : layers) {
      if (each.identifier == layer.identifier)
        each.muted = muted;
    }
  });
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::mute;
  operation.identifier = layer.identifier;
  operation.muted = muted;
  queueLayerOperation(std::move(operation), "layer visibility edit");
  if (!muted || layer.identifier != activeLayerIdentifier())
    return;
  // The muted layer can no longer receive edits: the next editable one does.
  for (const UsdLayerInfo& each : stageLayers()) {
    if (each.identifier != layer.identifier && isEditable(each)) {
      activate(each.identifier, each.name, each.root);
      return;
    }
  }
  activate({}, {}, false);
}

void LayerStackEditing::confirmClearLayer(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (!layer.writable || isSystem(layer)) {
    context_.status.set("That layer cannot be cleared");
    return;
  }
  const std::string text = layer.root ? "Remove authored root opinions from " + quoted(layer.name) +
                                            "? The sublayer stack and layer state will be kept."
                                      : "Remove authored opinions from " + quoted(layer.name) +
                                            "? The layer file will remain in the stack.";
  ask({.title = "Clear " + quoted(layer.name) + " Layer?", .text = text, .confirmTitle = "Clear"},
      [this, layer] {
        LayerAtomicOperation operation;
        operation.kind = LayerOperationKind::clear;
        operation.identifier = layer.identifier;
        queueLayerOperation(std::move(operation), "layer clear");
      });
}

void LayerStackEditing::confirmMergeLayerDown(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (const auto refusal = mergeDownRefusal(stageLayers(), layer)) {
    context_.status.set(*refusal);
    return;
  }
  const std::optional<UsdLayerInfo> below = layerBelow(stageLayers(), layer.identifier);
  ask({.title = "Merge Layer Down?",
       .text = "Merge " + quoted(layer.name) + " down into " + quoted(below->name) + "? " +
               quoted(layer.name) +
               " will be removed from the stack after its authored opinions "
               "are written into " +
               quoted(below->name) + ".",
       .confirmTitle = "Merge"},
      [this, layer] { mergeLayerDown(layer); });
}

void LayerStackEditing::mergeLayerDown(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (const auto refusal = mergeDownRefusal(stageLayers(), layer)) {
    context_.status.set(*refusal);
    return;
  }
  LayerAtomicOperation operation;
  operation.kind = LayerOperationKind::mergeDown;
  operation.identifier = layer.identifier;
  queueLayerOperation(std::move(operation), "layer merge");
}

// ---- The active layer

std::optional<std::string> LayerStackEditing::activationRefusal(const UsdLayerInfo& layer) const {
  if (isSystem(layer))
    return "Workspace edit layer is hidden";
  if (layer.muted)
    return "Enable that layer before editing it";
  if (!layer.writable)
    return "That layer is read-only";
  return std::nullopt;
}

void LayerStackEditing::setActiveLayer(const UsdLayerInfo& layer) {
  if (!passesGates())
    return;
  if (std::optional<std::string> refusal = activationRefusal(layer)) {
    context_.status.set(*refusal);
    return;
  }
  if (layer.identifier == activeLayerIdentifier())
    return;
  activate(layer.identifier, layer.name, layer.root);
}

bool LayerStackEditing::activateLayerForOverride(const std::string& identifier) {
  if (identifier.empty() || identifier == activeLayerIdentifier())
    return true;
  const std::vector<UsdLayerInfo>& layers = stageLayers();
  const auto found = std::find_if(layers.begin(), layers.end(), [&](const UsdLayerInfo& each) {
    return each.identifier == identifier;
  });
  if (found == layers.end()) {
    context_.status.set("Override layer not found");
    return false;
  }
  if (!passesGates())
    return false;
  if (std::optional<std::string> refusal = activationRefusal(*found)) {
    context_.status.set(*refusal);
    return false;
  }
  activate(found->identifier, found->name, found->root);
  return true;
}

void LayerStackEditing::activate(const std::string& identifier, const std::string& name,
                                 bool root) {
  context_.editClients.retirePersistentEditClient();
  context_.scope.current.update([&](SharedClientScope& scope) { scope.activeLayer = identifier; });
  const std::string key = activeLayerPreferenceKey(context_.scope.get());
  if (identifier.empty())
    (void)context_.preferences.remove(key);
  else
    (void)context_.preferences.setString(key, identifier);
  context_.editClients.prewarmPersistentEditClient();
  context_.status.set("Editing " + (!name.empty() ? name : root ? "Root Layer" : "Layer"));
}

void LayerStackEditing::reconcileActiveLayer() {
  const StageInspection& stage = context_.stage.get()->stage();
  std::string chosen;
  if (stage.usdLayersEnabled && !stage.layers.empty()) {
    auto usable = [&](std::string_view identifier) {
      return std::any_of(stage.layers.begin(), stage.layers.end(), [&](const UsdLayerInfo& each) {
        return each.identifier == identifier && isEditable(each);
      });
    };
    const std::string key = activeLayerPreferenceKey(context_.scope.get());
    const std::optional<std::string> remembered = context_.preferences.string(key);
    // A choice that still works stands; then the remembered one; then the first editable layer
    // below the root, so that a scene whose content lives in sublayers is edited there.
    if (!activeLayerIdentifier().empty() && usable(activeLayerIdentifier()))
      chosen = activeLayerIdentifier();
    else if (remembered && usable(*remembered))
      chosen = *remembered;
    else
      chosen = defaultEditLayerIdentifier(stage.layers);
  } else {
    layerPaneLayers.set({});
  }
  if (chosen == activeLayerIdentifier())
    return;
  context_.editClients.retirePersistentEditClient();
  context_.scope.current.update([&](SharedClientScope& scope) { scope.activeLayer = chosen; });
  const std::string key = activeLayerPreferenceKey(context_.scope.get());
  if (chosen.empty())
    (void)context_.preferences.remove(key);
  else
    (void)context_.preferences.setString(key, chosen);
}

void LayerStackEditing::activateAddedLayerAfterRefreshIfNeeded() {
  if (!pendingAddedLayerActivationPreviousIdentifiers)
    return;
  const std::set<std::string> previous =
      std::move(*std::exchange(pendingAddedLayerActivationPreviousIdentifiers, std::nullopt));
  for (const UsdLayerInfo& layer : stageLayers()) {
    if (!layer.root && layer.writable && !isSystem(layer) && !previous.contains(layer.identifier)) {
      activate(layer.identifier, layer.name, layer.root);
      break;
    }
  }
  context_.queue.continueDeferredScopeSwitchIfReady();
}

// ---- What the queue and the refresher tell

void LayerStackEditing::operationAccepted(const AtomicOperation& operation) {
  const LayerAtomicOperation* layer = operation.layer();
  if (!layer || layer->kind != LayerOperationKind::add)
    return;
  std::set<std::string> identifiers;
  for (const UsdLayerInfo& each : stageLayers())
    identifiers.insert(each.identifier);
  pendingAddedLayerActivationPreviousIdentifiers = std::move(identifiers);
}

void LayerStackEditing::rollBackOperation(const AtomicOperation& operation) {
  if (operation.layer())
    layerPaneLayers.set(stageLayers());
}

void LayerStackEditing::stageApplied() {
  layerPaneLayers.set(stageLayers());
  activateAddedLayerAfterRefreshIfNeeded();
  reconcileActiveLayer();
}

}  // namespace orvan::editor
