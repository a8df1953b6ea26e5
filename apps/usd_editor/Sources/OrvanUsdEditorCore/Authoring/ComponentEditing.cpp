#include "Authoring/ComponentEditing.h"

#include <algorithm>
#include <cstdio>

#include "Authoring/InstanceRules.h"
#include "Authoring/LocalStage.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kStorePreviewRefusal = "Add the Store preview to edit it";

// Components the inspector always lists first and never lets the user move.
bool isFixedComponent(std::string_view type) {
  return type == "Name" || type == "Transform" || type == kWorldSettings;
}

std::string label(const UsdComponent& component) {
  return component.label.value_or(component.type);
}

const UsdComponent* findComponent(const UsdPrimDetail& prim, std::string_view type) {
  for (const UsdComponent& component : prim.components) {
    if (component.type == type)
      return &component;
  }
  return nullptr;
}

const ComponentProperty* findProperty(const UsdComponent& component, std::string_view name) {
  for (const ComponentProperty& property : component.properties) {
    if (property.name == name)
      return &property;
  }
  return nullptr;
}

ComponentAtomicOperation componentOperation(ComponentOperationKind kind, std::string entityPath,
                                            std::string type, std::string propertyName = {},
                                            std::string value = {}) {
  return {.kind = kind,
          .entityPath = std::move(entityPath),
          .componentType = std::move(type),
          .propertyName = std::move(propertyName),
          .value = std::move(value)};
}

std::string formatPercent(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.4f", value);
  return buffer;
}

}  // namespace

const std::vector<UiLayoutPresetChoice>& uiLayoutPresetChoices() {
  static const std::vector<UiLayoutPresetChoice> kChoices = {
      {"Anchor top left", UiLayoutPreset::topLeft},
      {"Anchor top right", UiLayoutPreset::topRight},
      {"Anchor bottom left", UiLayoutPreset::bottomLeft},
      {"Anchor bottom right", UiLayoutPreset::bottomRight},
      {"Scale bounds with screen", UiLayoutPreset::scale},
      {"Stretch inside safe area", UiLayoutPreset::fill},
  };
  return kChoices;
}

std::vector<ComponentAtomicOperation> uiLayoutPresetOperations(
    const std::string& entityPath, const UsdComponent& component, UiLayoutPreset preset,
    std::optional<std::pair<double, double>> referenceResolution) {
  std::vector<ComponentAtomicOperation> operations;
  auto set = [&](std::string property, std::string value) {
    operations.push_back(componentOperation(ComponentOperationKind::set, entityPath, "UiLayout",
                                            std::move(property), std::move(value)));
  };
  auto current = [&](std::string_view name) -> std::string {
    const ComponentProperty* property = findProperty(component, name);
    return property ? property->value : std::string();
  };
  if (preset == UiLayoutPreset::scale && !referenceResolution)
    return operations;
  set("position", "absolute");
  switch (preset) {
    case UiLayoutPreset::fill:
      for (const char* edge : {"left", "right", "top", "bottom"}) {
        set(edge, "0");
        set(std::string(edge) + "Unit", "pixels");
      }
      set("widthUnit", "auto");
      set("heightUnit", "auto");
      break;
    case UiLayoutPreset::topLeft:
    case UiLayoutPreset::topRight:
    case UiLayoutPreset::bottomLeft:
    case UiLayoutPreset::bottomRight: {
      const bool right =
          preset == UiLayoutPreset::topRight || preset == UiLayoutPreset::bottomRight;
      const bool bottom =
          preset == UiLayoutPreset::bottomLeft || preset == UiLayoutPreset::bottomRight;
      const std::string horizontal = right ? "right" : "left";
      const std::string vertical = bottom ? "bottom" : "top";
      for (const std::string& edge : {horizontal, vertical}) {
        const std::string value = current(edge);
        set(edge, value.empty() || value == "auto" ? "24" : value);
        set(edge + "Unit", "pixels");
      }
      for (const std::string& edge :
           {std::string(right ? "left" : "right"), std::string(bottom ? "top" : "bottom")}) {
        set(edge, "auto");
        set(edge + "Unit", "auto");
      }
      set("widthUnit", "pixels");
      set("heightUnit", "pixels");
      break;
    }
    case UiLayoutPreset::scale: {
      const auto [width, height] = *referenceResolution;
      const std::pair<const char*, double> bounds[] = {{"left", width},    {"right", width},
                                                       {"width", width},   {"top", height},
                                                       {"bottom", height}, {"height", height}};
      for (const auto& [edge, extent] : bounds) {
        const std::optional<std::vector<double>> number = parseNumberList(current(edge));
        if (!number || number->size() != 1 || extent <= 0)
          continue;
        set(edge, formatPercent(number->front() / extent * 100.0));
        set(std::string(edge) + "Unit", "percent");
      }
      break;
    }
  }
  return operations;
}

std::optional<std::vector<std::string>> reorderedComponentTypes(
    const std::vector<UsdComponent>& components, std::string_view type,
    std::size_t toVisibleIndex) {
  std::vector<std::string> visible;
  for (const UsdComponent& component : components) {
    if (!isFixedComponent(component.type))
      visible.push_back(component.type);
  }
  const auto found = std::find(visible.begin(), visible.end(), type);
  if (found == visible.end())
    return std::nullopt;
  const std::size_t from = static_cast<std::size_t>(found - visible.begin());
  const std::size_t to = std::min(toVisibleIndex, visible.size() - 1);
  if (from == to)
    return std::nullopt;
  std::string moved = std::move(*found);
  visible.erase(found);
  visible.insert(visible.begin() + static_cast<std::ptrdiff_t>(to), std::move(moved));
  return visible;
}

void applyComponentOperationToPrim(UsdPrimDetail& prim, const ComponentAtomicOperation& operation,
                                   const std::vector<UsdComponent>& catalog) {
  auto& components = prim.components;
  const auto found =
      std::find_if(components.begin(), components.end(),
                   [&](const UsdComponent& each) { return each.type == operation.componentType; });
  switch (operation.kind) {
    case ComponentOperationKind::add: {
      if (found != components.end())
        return;
      const auto entry = std::find_if(
          catalog.begin(), catalog.end(),
          [&](const UsdComponent& each) { return each.type == operation.componentType; });
      UsdComponent added;
      if (entry != catalog.end())
        added = *entry;
      added.type = operation.componentType;
      added.enabled = true;
      components.push_back(std::move(added));
      return;
    }
    case ComponentOperationKind::remove:
      if (found != components.end())
        components.erase(found);
      return;
    case ComponentOperationKind::enable:
      if (found != components.end())
        found->enabled = operation.value == "true";
      return;
    case ComponentOperationKind::set:
      if (found == components.end())
        return;
      // Whether the new value overrides another layer's is the stage's to say
      // (`LocalStage::applyComponentChange`).
      for (ComponentProperty& property : found->properties) {
        if (property.name == operation.propertyName)
          property.value = operation.value;
      }
      return;
    case ComponentOperationKind::reset:
      // The override goes; the value underneath shows with the next stage.
      if (found == components.end())
        return;
      for (ComponentProperty& property : found->properties) {
        if (property.name != operation.propertyName)
          continue;
        property.overridden = false;
        property.overriddenInActiveLayer = false;
        property.overrideLayer.clear();
        property.overrideLayerName.clear();
      }
      return;
    case ComponentOperationKind::reorder:
      // Shown with the next stage: the order is the server's to say.
      return;
  }
}

// ---- ComponentEditing

std::vector<std::string> ComponentEditing::selectedEntityPaths() const {
  const SceneSelection selection = context_.session.selection();
  if (!selection.snapshot.entityPaths.empty())
    return selection.snapshot.entityPaths;
  if (!selection.paths.empty())
    return selection.paths;
  if (!selection.primaryPath.empty())
    return {selection.primaryPath};
  return {};
}

std::vector<std::string> ComponentEditing::editableEntityPaths(
    const std::vector<std::string>& paths) {
  const HierarchyEditRules rules = hierarchyEditRulesFor(context_.stage.get(), context_.documents);
  std::vector<std::string> editable;
  for (const std::string& path : paths) {
    if (path.empty())
      continue;
    if (context_.documents.isStorePreviewPath(path)) {
      context_.status.set(std::string(kStorePreviewRefusal));
      continue;
    }
    if (path != kWorldPath && rules.isInstanceProxyPath(path)) {
      context_.status.set(rules.instanceProxyRefusalStatus(path));
      continue;
    }
    if (std::find(editable.begin(), editable.end(), path) == editable.end())
      editable.push_back(path);
  }
  return editable;
}

void ComponentEditing::queueAll(std::vector<ComponentAtomicOperation> operations) {
  if (operations.empty())
    return;
  applyAcceptedComponentOperations(operations);
  for (ComponentAtomicOperation& operation : operations)
    context_.queue.queue(AtomicOperation{std::move(operation)});
  context_.queue.submitNextOperation();
}

void ComponentEditing::addComponent(const std::string& type) {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  std::vector<ComponentAtomicOperation> operations;
  for (const std::string& path : editableEntityPaths(selectedEntityPaths())) {
    const UsdPrimDetail* prim = stage->prim(path);
    if (prim && !findComponent(*prim, type))
      operations.push_back(componentOperation(ComponentOperationKind::add, path, type));
  }
  queueAll(std::move(operations));
}

void ComponentEditing::removeComponent(const std::string& type) {
  std::vector<ComponentAtomicOperation> operations;
  for (const std::string& path : context_.drafts.targetEntityPaths(type, std::nullopt))
    operations.push_back(componentOperation(ComponentOperationKind::remove, path, type));
  queueAll(std::move(operations));
}

void ComponentEditing::setEnabled(const std::string& type, bool enabled) {
  std::vector<ComponentAtomicOperation> operations;
  for (const std::string& path : context_.drafts.targetEntityPaths(type, std::nullopt)) {
    operations.push_back(componentOperation(ComponentOperationKind::enable, path, type, {},
                                            enabled ? "true" : "false"));
  }
  queueAll(std::move(operations));
}

void ComponentEditing::reorderComponent(const std::string& type, std::size_t toVisibleIndex) {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  bool queued = false;
  for (const std::string& path : context_.drafts.targetEntityPaths(type, std::nullopt)) {
    const UsdPrimDetail* prim = stage->prim(path);
    if (!prim)
      continue;
    const std::optional<std::vector<std::string>> order =
        reorderedComponentTypes(prim->components, type, toVisibleIndex);
    if (!order)
      continue;
    std::string value;
    for (const std::string& each : *order)
      value += (value.empty() ? "" : ",") + each;
    context_.queue.queue(AtomicOperation{
        componentOperation(ComponentOperationKind::reorder, path, type, {}, std::move(value))});
    queued = true;
  }
  if (queued)
    context_.queue.submitNextOperation();
}

void ComponentEditing::copyComponent(const UsdComponent& component) {
  clipboard = component;
  context_.status.set("Copied " + label(component) + "; select another object to paste it");
}

void ComponentEditing::queueComponentSnapshot(const UsdComponent& component,
                                              const std::vector<std::string>& paths) {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  std::vector<ComponentAtomicOperation> operations;
  for (const std::string& path : editableEntityPaths(paths)) {
    const UsdPrimDetail* prim = stage->prim(path);
    if (!prim)
      continue;
    if (!findComponent(*prim, component.type))
      operations.push_back(componentOperation(ComponentOperationKind::add, path, component.type));
    operations.push_back(componentOperation(ComponentOperationKind::enable, path, component.type,
                                            {}, component.enabled ? "true" : "false"));
    for (const ComponentProperty& property : component.properties) {
      if (property.control == "readonly")
        continue;
      operations.push_back(componentOperation(ComponentOperationKind::set, path, component.type,
                                              property.name, property.value));
    }
  }
  queueAll(std::move(operations));
}

void ComponentEditing::pasteComponentSnapshot(const UsdComponent& component,
                                              const std::vector<std::string>& paths) {
  if (paths.empty()) {
    context_.status.set("Select an object to paste the component");
    return;
  }
  context_.status.set("Pasting " + label(component));
  queueComponentSnapshot(component, paths);
}

void ComponentEditing::duplicateComponentToSelection(const UsdComponent& component,
                                                     const std::string& sourcePath) {
  std::vector<std::string> others;
  for (const std::string& path : selectedEntityPaths()) {
    if (path != sourcePath)
      others.push_back(path);
  }
  const std::vector<std::string> targets = editableEntityPaths(others);
  if (targets.empty()) {
    copyComponent(component);
    return;
  }
  clipboard = component;
  queueComponentSnapshot(component, targets);
  context_.status.set("Copied " + label(component) + " to " + std::to_string(targets.size()) +
                      " objects");
}

std::optional<std::pair<double, double>> ComponentEditing::uiCanvasReferenceResolution(
    std::string_view path) const {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  std::string current(path);
  while (!current.empty()) {
    if (const UsdPrimDetail* prim = stage->prim(current)) {
      if (const UsdComponent* canvas = findComponent(*prim, "UiCanvas")) {
        const ComponentProperty* resolution = findProperty(*canvas, "referenceResolution");
        if (!resolution)
          return std::nullopt;
        const std::optional<std::vector<double>> numbers = parseNumberList(resolution->value);
        if (!numbers || numbers->size() != 2)
          return std::nullopt;
        return std::pair((*numbers)[0], (*numbers)[1]);
      }
    }
    const std::size_t slash = current.rfind('/');
    if (slash == std::string::npos || slash == 0)
      break;
    current.resize(slash);
  }
  return std::nullopt;
}

void ComponentEditing::applyUiLayoutPreset(UiLayoutPreset preset) {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  const std::vector<std::string> targets =
      context_.drafts.targetEntityPaths("UiLayout", std::nullopt);
  if (targets.empty()) {
    context_.status.set("Select an object with UiLayout");
    return;
  }
  context_.status.set("Applying responsive layout");
  std::vector<ComponentAtomicOperation> operations;
  for (const std::string& path : targets) {
    const UsdPrimDetail* prim = stage->prim(path);
    const UsdComponent* layout = prim ? findComponent(*prim, "UiLayout") : nullptr;
    if (!layout)
      continue;
    for (ComponentAtomicOperation& operation :
         uiLayoutPresetOperations(path, *layout, preset, uiCanvasReferenceResolution(path)))
      operations.push_back(std::move(operation));
  }
  queueAll(std::move(operations));
}

void ComponentEditing::applyAcceptedComponentOperations(
    std::span<const ComponentAtomicOperation> operations) {
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  std::vector<ComponentAtomicOperation> local;
  for (const ComponentAtomicOperation& operation : operations) {
    if (operation.componentType == kWorldSettings) {
      context_.drafts.updateWorldAttribute(operation.propertyName, operation.value);
      continue;
    }
    // A new name touches its own draft only; any set shows in the inspector's field at once.
    if (operation.kind == ComponentOperationKind::set) {
      context_.drafts.updateDraftSnapshot({operation.entityPath}, operation.componentType,
                                          operation.propertyName, operation.value);
    } else if (operation.kind == ComponentOperationKind::reset) {
      context_.drafts.clearDraft(operation.entityPath, operation.componentType,
                                 operation.propertyName);
    }
    if (stage->prim(operation.entityPath))
      local.push_back(operation);
  }
  if (local.empty())
    return;
  StageInspection copy = copyWithRoomToGrow(stage->stage());
  {
    LocalStage edited(copy, context_.scope.activeLayerIdentifier(), {}, stage);
    for (const ComponentAtomicOperation& operation : local)
      edited.applyComponentChange(operation);
    edited.finish();
  }
  context_.stageRefresher.storeStage(PreparedStage::prepare(std::move(copy)));
  // Until the server's stage holds them, every stage that arrives shows them too.
  context_.overlay.recordOptimisticComponentOperations(local);
}

}  // namespace orvan::editor
