#include "Authoring/PropertyDrafts.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "Authoring/InstanceRules.h"

namespace orvan::editor {

namespace {

constexpr std::string_view kBlank = " \t\r\n";
constexpr std::string_view kNumberCharacters = "0123456789-+.eE";
constexpr std::string_view kWorldNamespace = "orvan:";
constexpr std::string_view kPropertyEditLabel = "property edit";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos)
    return {};
  const std::size_t last = text.find_last_not_of(kBlank);
  return text.substr(first, last - first + 1);
}

std::vector<std::string_view> commaPieces(std::string_view text) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t comma = text.find(',', start);
    const std::size_t end = comma == std::string_view::npos ? text.size() : comma;
    pieces.push_back(text.substr(start, end - start));
    if (comma == std::string_view::npos)
      break;
    start = comma + 1;
  }
  return pieces;
}

std::optional<double> parseNumber(std::string_view piece) {
  if (piece.empty() || piece.find_first_not_of(kNumberCharacters) != std::string_view::npos)
    return std::nullopt;
  // from_chars takes no leading "+".
  std::string_view digits = piece;
  if (digits.front() == '+') {
    digits.remove_prefix(1);
    if (digits.empty() || digits.front() == '-' || digits.front() == '+')
      return std::nullopt;
  }
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size())
    return std::nullopt;
  return value;
}

std::optional<std::size_t> numberCount(std::string_view kind) {
  if (kind == "number")
    return 1;
  if (kind == "vector2")
    return 2;
  if (kind.rfind("vector", 0) == 0)
    return 3;
  return std::nullopt;
}

std::string joinedNumbers(const std::vector<double>& numbers) {
  std::string text;
  for (std::size_t index = 0; index < numbers.size(); ++index) {
    if (index > 0)
      text += ',';
    text += formatNumber(numbers[index]);
  }
  return text;
}

// An attribute's value as the stage writes it: "(0.1, 0.2, 0.3)" or "0.5".
std::optional<std::vector<double>> attributeNumbers(std::string_view value) {
  std::string plain;
  for (const char each : value) {
    if (each != '(' && each != ')' && each != '[' && each != ']')
      plain += each;
  }
  return parseNumberList(plain);
}

const ComponentProperty* findProperty(const UsdPrimDetail& prim, std::string_view componentType,
                                      std::string_view propertyName) {
  for (const UsdComponent& component : prim.components) {
    if (component.type != componentType)
      continue;
    for (const ComponentProperty& property : component.properties) {
      if (property.name == propertyName)
        return &property;
    }
  }
  return nullptr;
}

bool holdsComponent(const UsdPrimDetail& prim, std::string_view componentType) {
  return std::any_of(prim.components.begin(), prim.components.end(),
                     [&](const UsdComponent& each) { return each.type == componentType; });
}

PropertyDrafts::DeferredCommit deferredCommit(std::vector<std::string> entityPaths,
                                              std::string componentType, std::string propertyName,
                                              std::string value) {
  PropertyDrafts::DeferredCommit commit;
  commit.entityPaths = std::move(entityPaths);
  commit.componentType = std::move(componentType);
  commit.propertyName = std::move(propertyName);
  commit.value = std::move(value);
  return commit;
}

}  // namespace

// ---- The value grammar

std::optional<std::vector<double>> parseNumberList(std::string_view text) {
  std::vector<double> numbers;
  for (std::string_view piece : commaPieces(text)) {
    piece = trimmed(piece);
    if (piece.empty())
      continue;
    std::optional<double> number = parseNumber(piece);
    if (!number)
      return std::nullopt;
    numbers.push_back(*number);
  }
  return numbers;
}

bool valueIsValid(std::string_view value, std::string_view kind) {
  const std::string_view text = trimmed(value);
  const std::optional<std::size_t> count = numberCount(kind);
  if (!count)
    return !text.empty();
  const std::optional<std::vector<double>> numbers = parseNumberList(text);
  return numbers && numbers->size() == *count;
}

std::string normalizedValue(std::string_view value, std::string_view kind) {
  if (kind == "number" || kind == "vector2" || kind == "vector3") {
    if (std::optional<std::vector<double>> numbers = parseNumberList(value))
      return joinedNumbers(*numbers);
  }
  return std::string(trimmed(value));
}

std::string formatNumber(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.6g", value);
  return buffer;
}

std::vector<std::string> splitVectorDraft(std::string_view text, std::size_t count) {
  std::vector<std::string> values;
  values.reserve(count);
  const std::vector<std::string_view> pieces = commaPieces(text);
  for (std::size_t index = 0; index < count; ++index) {
    if (index >= pieces.size()) {
      values.emplace_back("0");
      continue;
    }
    const std::string_view piece = trimmed(pieces[index]);
    const std::optional<double> number = parseNumber(piece);
    values.push_back(number ? formatNumber(*number) : std::string(piece));
  }
  return values;
}

std::string sliderCommitKey(std::string_view componentType, std::string_view propertyName,
                            const std::vector<std::string>& entityPaths) {
  std::string key = std::string(componentType) + "|" + std::string(propertyName);
  for (const std::string& path : entityPaths)
    key += "|" + path;
  return key;
}

std::string draftKey(std::string_view componentType, std::string_view propertyName) {
  return std::string(componentType) + "|" + std::string(propertyName);
}

std::string previewKey(std::string_view entityPath, std::string_view componentType,
                       std::string_view propertyName) {
  return std::string(entityPath) + "|" + std::string(componentType) + "|" +
         std::string(propertyName);
}

bool supportsViewportPropertyPreview(std::string_view componentType, std::string_view property) {
  static const std::map<std::string_view, std::vector<std::string_view>> kSupported = {
      {"WorldSettings",
       {"backgroundColor", "ambientOcclusionEnabled", "ambientOcclusionStrength", "ambientColor",
        "shadowsEnabled"}},
      {"RenderShape", {"color", "dimensions"}},
      {"MeshAsset", {"proxyDimensions"}},
      {"Light", {"color", "intensity"}},
      {"Material",
       {"baseColor", "roughness", "metallic", "baseColorTexture", "roughnessTexture",
        "metallicTexture", "emissiveTexture"}},
      {"MaterialBinding", {"material"}},
  };
  const auto found = kSupported.find(componentType);
  return found != kSupported.end() &&
         std::find(found->second.begin(), found->second.end(), property) != found->second.end();
}

std::set<std::string> resolvingAssetPointerKeys(const AtomicOperation& operation) {
  const ComponentAtomicOperation* component = operation.component();
  if (!component || component->kind != ComponentOperationKind::set)
    return {};
  const bool pointer =
      (component->componentType == "MeshAsset" && component->propertyName == "asset") ||
      (component->componentType == "MaterialBinding" && component->propertyName == "material");
  if (!pointer)
    return {};
  return {previewKey(component->entityPath, component->componentType, component->propertyName)};
}

// ---- LivePropertyPreviewStore

void LivePropertyPreviewStore::set(const std::string& key, std::string value) {
  pendingValues[key] = std::move(value);
  schedulePublish();
}

void LivePropertyPreviewStore::remove(const std::string& key) {
  pendingValues.erase(key);
  values.update([&](auto& all) { all.erase(key); });
}

void LivePropertyPreviewStore::schedulePublish() {
  if (publishTask_.isActive())
    return;
  const TimePoint now = main_.now();
  const Duration interval = kPropertyPreviewInterval;
  if (!lastPublish || now - *lastPublish >= interval) {
    publishPendingValues();
    return;
  }
  const Duration remaining = std::max(Duration::zero(), interval - (now - *lastPublish));
  const WeakLifetime weak = lifetime_.weak();
  publishTask_.replace(main_.postAfter(remaining, [this, weak] {
    if (!weak.isAlive())
      return;
    publishTask_.clear();
    publishPendingValues();
  }));
}

void LivePropertyPreviewStore::publishPendingValues() {
  if (pendingValues.empty())
    return;
  values.update([&](auto& all) {
    for (auto& [key, value] : pendingValues)
      all[key] = value;
  });
  pendingValues.clear();
  lastPublish = main_.now();
}

void LivePropertyPreviewStore::clear() {
  publishTask_.cancel();
  pendingValues.clear();
  values.set({});
}

// ---- Reading

std::vector<std::string> PropertyDrafts::targetEntityPaths(
    std::string_view componentType, std::optional<std::string_view> propertyName) {
  (void)propertyName;
  // Read in place: a drag asks this on every step, and the snapshot holds every selected entity.
  const EditorSelectionSnapshot& snapshot = context_.session.inspector.get().sceneSnapshot;
  if (snapshot.storePreview) {
    context_.status.set("Add the Store preview to edit it");
    return {};
  }
  if (componentType == kWorldSettings)
    return {std::string(kWorldPath)};
  const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
  const HierarchyEditRules rules = hierarchyEditRulesFor(stage, context_.documents);
  const std::vector<std::string>& selected = snapshot.entityPaths.empty()
                                                 ? context_.session.sceneSelection.get().paths
                                                 : snapshot.entityPaths;
  std::vector<std::string> targets;
  for (const std::string& path : selected) {
    if (path.empty() || context_.documents.isStorePreviewPath(path))
      continue;
    const UsdPrimDetail* prim = stage->prim(path);
    if (!prim || !holdsComponent(*prim, componentType))
      continue;
    if (rules.isInstanceProxyPath(path)) {
      context_.status.set(rules.instanceProxyRefusalStatus(path));
      return {};
    }
    if (std::find(targets.begin(), targets.end(), path) == targets.end())
      targets.push_back(path);
  }
  return targets;
}

std::string PropertyDrafts::draftValue(const UsdComponent& component,
                                       const ComponentProperty& property) const {
  const EditorSelectionSnapshot& snapshot = context_.session.inspector.get().sceneSnapshot;
  std::string first;
  if (component.type == kWorldSettings) {
    first = std::string(kWorldPath);
  } else {
    const std::vector<std::string>& selected = snapshot.entityPaths.empty()
                                                   ? context_.session.sceneSelection.get().paths
                                                   : snapshot.entityPaths;
    const std::shared_ptr<const PreparedStage> stage = context_.stage.get();
    for (const std::string& path : selected) {
      const UsdPrimDetail* prim = stage->prim(path);
      if (prim && holdsComponent(*prim, component.type)) {
        first = path;
        break;
      }
    }
  }
  if (first.empty())
    return property.value;
  const auto& previews = livePreviews.values.get();
  if (auto found = previews.find(previewKey(first, component.type, property.name));
      found != previews.end()) {
    return found->second;
  }
  if (auto entity = drafts.get().find(first); entity != drafts.get().end()) {
    if (auto found = entity->second.find(draftKey(component.type, property.name));
        found != entity->second.end()) {
      return found->second;
    }
  }
  if (const UsdPrimDetail* prim = context_.stage.get()->prim(first)) {
    if (const ComponentProperty* stageProperty =
            findProperty(*prim, component.type, property.name)) {
      return stageProperty->value;
    }
  }
  return property.value;
}

std::vector<std::string> PropertyDrafts::vectorDraftValues(const UsdComponent& component,
                                                           const ComponentProperty& property,
                                                           std::size_t count) const {
  return splitVectorDraft(draftValue(component, property), count);
}

std::string PropertyDrafts::worldColorValue(std::string_view propertyName) const {
  const auto& previews = livePreviews.values.get();
  if (auto found = previews.find(previewKey(kWorldPath, kWorldSettings, propertyName));
      found != previews.end()) {
    return found->second;
  }
  if (auto found = worldDrafts.get().find(std::string(propertyName));
      found != worldDrafts.get().end()) {
    return found->second;
  }
  if (const UsdPrimDetail* world = context_.stage.get()->prim(kWorldPath)) {
    const std::string name = std::string(kWorldNamespace) + std::string(propertyName);
    for (const UsdAttribute& attribute : world->attributes) {
      if (attribute.name != name)
        continue;
      if (std::optional<std::vector<double>> numbers = attributeNumbers(attribute.value);
          numbers && !numbers->empty()) {
        return joinedNumbers(*numbers);
      }
    }
  }
  return std::string(kDefaultWorldColor);
}

std::string PropertyDrafts::worldNumberValue(std::string_view propertyName, double fallback) const {
  const auto& previews = livePreviews.values.get();
  if (auto found = previews.find(previewKey(kWorldPath, kWorldSettings, propertyName));
      found != previews.end()) {
    return found->second;
  }
  if (auto found = worldDrafts.get().find(std::string(propertyName));
      found != worldDrafts.get().end()) {
    return found->second;
  }
  if (const UsdPrimDetail* world = context_.stage.get()->prim(kWorldPath)) {
    const std::string name = std::string(kWorldNamespace) + std::string(propertyName);
    for (const UsdAttribute& attribute : world->attributes) {
      if (attribute.name != name)
        continue;
      if (std::optional<std::vector<double>> numbers = attributeNumbers(attribute.value);
          numbers && numbers->size() == 1) {
        return formatNumber(numbers->front());
      }
    }
  }
  return formatNumber(fallback);
}

// ---- Editing

void PropertyDrafts::writeDraft(const std::string& entityPath, const std::string& key,
                                const std::string& value, Drafts& into) const {
  into[entityPath][key] = value;
}

void PropertyDrafts::updateDraftSnapshot(const std::vector<std::string>& entityPaths,
                                         const std::string& componentType,
                                         const std::string& propertyName,
                                         const std::string& value) {
  const std::string key = draftKey(componentType, propertyName);
  if (componentType == kWorldSettings)
    worldDrafts.update([&](auto& all) { all[propertyName] = value; });
  drafts.update([&](Drafts& all) {
    for (const std::string& path : entityPaths)
      writeDraft(path, key, value, all);
  });
  // The inspector shows the text at once, without waiting for a new snapshot.
  const std::uint64_t serial = context_.session.sceneSelection.get().serial;
  EditorSelectionSnapshot snapshot = context_.session.inspector.get().sceneSnapshot;
  bool changed = false;
  for (UsdComponent& component : snapshot.components) {
    if (component.type != componentType)
      continue;
    for (ComponentProperty& property : component.properties) {
      if (property.name == propertyName && property.value != value) {
        property.value = value;
        changed = true;
      }
    }
  }
  if (changed)
    context_.session.replaceSceneSelectionSnapshot(std::move(snapshot), serial);
}

void PropertyDrafts::beginResolvingAssetPointers(const std::vector<std::string>& entityPaths,
                                                 const std::string& componentType,
                                                 const std::string& propertyName) {
  resolvingAssetPointers.update([&](auto& keys) {
    for (const std::string& path : entityPaths)
      keys.insert(previewKey(path, componentType, propertyName));
  });
}

void PropertyDrafts::endResolvingAssetPointers(const std::set<std::string>& keys) {
  if (keys.empty())
    return;
  resolvingAssetPointers.update([&](auto& all) {
    for (const std::string& key : keys)
      all.erase(key);
  });
  for (const std::string& key : keys)
    resolvingAssetPointersAwaitingRefresh.erase(key);
}

void PropertyDrafts::updateDraft(const UsdComponent& component, const ComponentProperty& property,
                                 const std::string& value, bool submit) {
  const std::vector<std::string> targets = targetEntityPaths(component.type, property.name);
  if (targets.empty())
    return;
  if (value.rfind("asset:", 0) == 0)
    beginResolvingAssetPointers(targets, component.type, property.name);
  updateDraftSnapshot(targets, component.type, property.name, value);
  if (!valueIsValid(value, property.kind)) {
    context_.status.set("Waiting for valid " + property.kind + " value");
    return;
  }
  const std::string normalized = normalizedValue(value, property.kind);
  const std::string key = sliderCommitKey(component.type, property.name, targets);
  publishViewportPropertyPreview(targets, component.type, property.name, normalized);
  if (!submit) {
    context_.status.set("Previewing " + property.name);
    return;
  }
  scheduleDeferredPropertyCommit(
      key, deferredCommit(targets, component.type, property.name, normalized));
}

void PropertyDrafts::cancelDeferredCommit(const std::string& key) {
  if (auto found = deferredPropertyCommitTasks.find(key);
      found != deferredPropertyCommitTasks.end()) {
    found->second.task.cancel();
    deferredPropertyCommitTasks.erase(found);
  }
}

void PropertyDrafts::scheduleDeferredPropertyCommit(const std::string& key, DeferredCommit commit) {
  cancelDeferredCommit(key);
  const WeakLifetime weak = lifetime_.weak();
  commit.task = context_.main.postAfter(kDeferredPropertyCommitDelay, [this, weak, key] {
    if (!weak.isAlive())
      return;
    auto found = deferredPropertyCommitTasks.find(key);
    if (found == deferredPropertyCommitTasks.end())
      return;
    const DeferredCommit due = std::move(found->second);
    deferredPropertyCommitTasks.erase(found);
    updateOptimisticProperty(due.entityPaths, due.componentType, due.propertyName, due.value,
                             std::string(kPropertyEditLabel));
  });
  deferredPropertyCommitTasks.emplace(key, std::move(commit));
}

void PropertyDrafts::commitRetainedNumericControl(const UsdComponent& component,
                                                  const ComponentProperty& property,
                                                  const std::string& value) {
  const std::vector<std::string> targets = targetEntityPaths(component.type, property.name);
  if (targets.empty())
    return;
  const std::string key = sliderCommitKey(component.type, property.name, targets);
  if (!valueIsValid(value, property.kind)) {
    updateDraftSnapshot(targets, component.type, property.name, value);
    context_.status.set("Waiting for valid " + property.kind + " value");
    return;
  }
  cancelDeferredCommit(key);
  const std::string normalized = normalizedValue(value, property.kind);
  updateDraftSnapshot(targets, component.type, property.name, normalized);
  updateOptimisticProperty(targets, component.type, property.name, normalized,
                           std::string(kPropertyEditLabel));
}

void PropertyDrafts::scheduleColorCommit(const UsdComponent& component,
                                         const ComponentProperty& property,
                                         const std::vector<std::string>& entityPaths,
                                         const std::string& value) {
  if (entityPaths.empty())
    return;
  const std::string normalized = normalizedValue(value, "vector3");
  updateDraftSnapshot(entityPaths, component.type, property.name, normalized);
  if (!valueIsValid(normalized, "vector3")) {
    context_.status.set("Waiting for valid vector3 value");
    return;
  }
  publishViewportPropertyPreview(entityPaths, component.type, property.name, normalized);
  scheduleDeferredPropertyCommit(
      sliderCommitKey(component.type, property.name, entityPaths),
      deferredCommit(entityPaths, component.type, property.name, normalized));
}

std::string PropertyDrafts::queuedStatus(std::string_view label) const {
  return std::string(context_.queue.state.submitInFlight ? "Queued " : "Pending ") +
         std::string(label);
}

void PropertyDrafts::updateOptimisticProperty(const std::vector<std::string>& entityPaths,
                                              const std::string& componentType,
                                              const std::string& propertyName,
                                              const std::string& value,
                                              const std::string& statusLabel) {
  for (const std::string& path : entityPaths)
    livePreviews.set(previewKey(path, componentType, propertyName), value);
  updateOptimisticComponentProperty(entityPaths, componentType, propertyName, value, statusLabel);
}

void PropertyDrafts::updateOptimisticComponentProperty(const std::vector<std::string>& entityPaths,
                                                       const std::string& componentType,
                                                       const std::string& propertyName,
                                                       const std::string& value,
                                                       const std::string& statusLabel) {
  if (componentType == kWorldSettings) {
    updateWorldAttribute(propertyName, value);
    return;
  }
  for (const std::string& path : entityPaths) {
    context_.queue.queue(AtomicOperation{ComponentAtomicOperation{
        .kind = ComponentOperationKind::set,
        .entityPath = path,
        .componentType = componentType,
        .propertyName = propertyName,
        .value = value,
    }});
  }
  context_.status.set(queuedStatus(statusLabel));
  context_.queue.submitNextOperation();
}

void PropertyDrafts::clearDraft(const std::string& entityPath, const std::string& componentType,
                                const std::string& propertyName) {
  const std::string key = draftKey(componentType, propertyName);
  drafts.update([&](Drafts& all) {
    if (auto entity = all.find(entityPath); entity != all.end())
      entity->second.erase(key);
  });
}

void PropertyDrafts::resetComponentOverride(const UsdComponent& component,
                                            const ComponentProperty& property) {
  const std::vector<std::string> targets = targetEntityPaths(component.type, property.name);
  if (targets.empty())
    return;
  const std::string key = draftKey(component.type, property.name);
  cancelDeferredCommit(sliderCommitKey(component.type, property.name, targets));
  std::vector<ComponentAtomicOperation> resets;
  for (const std::string& path : targets) {
    livePreviews.remove(previewKey(path, component.type, property.name));
    resets.push_back({
        .kind = ComponentOperationKind::reset,
        .entityPath = path,
        .componentType = component.type,
        .propertyName = property.name,
        .value = {},
    });
  }
  applyLocalComponentOperations(resets);
  for (ComponentAtomicOperation& reset : resets)
    context_.queue.queue(AtomicOperation{std::move(reset)});
  drafts.update([&](Drafts& all) {
    for (const std::string& path : targets) {
      if (auto entity = all.find(path); entity != all.end())
        entity->second.erase(key);
    }
  });
  context_.queue.submitNextOperation();
}

void PropertyDrafts::resetAttributeOverrideFromLayer(const UsdAttribute& attribute) {
  const SceneSelection selection = context_.session.selection();
  if (selection.primaryPath.empty())
    return;
  context_.queue.queue(AtomicOperation{UsdPropertyAtomicOperation{
      .kind = UsdPropertyOperationKind::reset,
      .primPath = selection.primaryPath,
      .propertyName = attribute.name,
      .value = {},
  }});
  context_.queue.submitNextOperation();
}

void PropertyDrafts::assignProjectAssetPointer(const UsdComponent& component,
                                               const ComponentProperty& property,
                                               std::string_view assetPath) {
  static constexpr std::string_view kAssetRoot = "/World/OrvanAssets/";
  const bool takesAsset = property.kind == "material" || property.kind == "mesh" ||
                          property.kind == "sound" || property.kind == "font";
  const bool underRoot = assetPath.rfind(kAssetRoot, 0) == 0;
  const bool fontMatches =
      property.kind != "font" ||
      (assetPath.size() >= 4 && assetPath.substr(assetPath.size() - 4) == ".otf");
  if (!takesAsset || !underRoot || !fontMatches) {
    context_.status.set("Project asset cannot be assigned here");
    return;
  }
  updateDraft(component, property, "asset:" + std::string(assetPath), true);
}

void PropertyDrafts::updateWorldAttribute(const std::string& propertyName,
                                          const std::string& value) {
  if (!context_.stage.get()->prim(kWorldPath))
    return;
  worldDrafts.update([&](auto& all) { all[propertyName] = value; });
  const std::vector<std::string> world = {std::string(kWorldPath)};
  publishViewportPropertyPreview(world, std::string(kWorldSettings), propertyName, value);
  context_.queue.queue(AtomicOperation{UsdPropertyAtomicOperation{
      .kind = UsdPropertyOperationKind::set,
      .primPath = std::string(kWorldPath),
      .propertyName = std::string(kWorldNamespace) + propertyName,
      .value = value,
  }});
  context_.queue.submitNextOperation();
}

void PropertyDrafts::commitRetainedWorldNumber(const std::string& propertyName, double value,
                                               double minimum, double maximum) {
  const std::string text = formatNumber(std::clamp(value, minimum, maximum));
  const std::vector<std::string> world = {std::string(kWorldPath)};
  cancelDeferredCommit(sliderCommitKey(kWorldSettings, propertyName, world));
  const std::string status = queuedStatus("world setting");
  updateWorldAttribute(propertyName, text);
  context_.status.set(status);
}

// ---- Previews for the viewport

void PropertyDrafts::publishViewportPropertyPreview(const std::vector<std::string>& entityPaths,
                                                    const std::string& componentType,
                                                    const std::string& propertyName,
                                                    const std::string& value) {
  if (!supportsViewportPropertyPreview(componentType, propertyName))
    return;
  for (const std::string& path : entityPaths) {
    pendingViewportPropertyPreviews[previewKey(path, componentType, propertyName)] = {
        .entityPath = path,
        .componentType = componentType,
        .propertyName = propertyName,
        .value = value,
        .clear = false,
    };
  }
  scheduleViewportPropertyPreviewPublish();
}

void PropertyDrafts::scheduleViewportPropertyPreviewPublish() {
  if (viewportPreviewTask_.isActive())
    return;
  auto publish = [this] {
    if (pendingViewportPropertyPreviews.empty())
      return;
    std::vector<EditorViewportPropertyPreview> previews;
    for (auto& [key, preview] : pendingViewportPropertyPreviews)
      previews.push_back(std::move(preview));
    pendingViewportPropertyPreviews.clear();
    lastViewportPropertyPreviewPublish = context_.main.now();
    publishViewportPropertyPreviewsNow(std::move(previews));
  };
  const TimePoint now = context_.main.now();
  if (!lastViewportPropertyPreviewPublish ||
      now - *lastViewportPropertyPreviewPublish >= kPropertyPreviewInterval) {
    publish();
    return;
  }
  const Duration remaining = std::max(
      Duration::zero(), kPropertyPreviewInterval - (now - *lastViewportPropertyPreviewPublish));
  const WeakLifetime weak = lifetime_.weak();
  viewportPreviewTask_.replace(context_.main.postAfter(remaining, [this, weak, publish] {
    if (!weak.isAlive())
      return;
    viewportPreviewTask_.clear();
    publish();
  }));
}

void PropertyDrafts::publishViewportPropertyPreviewsNow(
    std::vector<EditorViewportPropertyPreview> previews) {
  context_.session.viewport.update([&](ViewportControlsState& state) {
    state.controls.propertyPreviews = std::move(previews);
    ++state.controls.propertyPreviewSerial;
  });
}

void PropertyDrafts::clearViewportPropertyPreview(const AtomicOperation& operation) {
  EditorViewportPropertyPreview preview;
  preview.clear = true;
  if (const UsdPropertyAtomicOperation* property = operation.usdProperty()) {
    std::string name = property->propertyName;
    if (name.rfind(kWorldNamespace, 0) == 0)
      name.erase(0, kWorldNamespace.size());
    preview.entityPath = std::string(kWorldPath);
    preview.componentType = std::string(kWorldSettings);
    preview.propertyName = name;
  } else if (const ComponentAtomicOperation* component = operation.component()) {
    preview.entityPath = component->entityPath;
    preview.componentType = component->componentType;
    preview.propertyName = component->propertyName;
  } else {
    return;
  }
  if (!supportsViewportPropertyPreview(preview.componentType, preview.propertyName))
    return;
  pendingViewportPropertyPreviews.erase(
      previewKey(preview.entityPath, preview.componentType, preview.propertyName));
  lastViewportPropertyPreviewPublish = context_.main.now();
  publishViewportPropertyPreviewsNow({preview});
}

// ---- What the queue and the refresher tell

void PropertyDrafts::operationAccepted(const AtomicOperation& operation) {
  for (const std::string& key : resolvingAssetPointerKeys(operation))
    resolvingAssetPointersAwaitingRefresh.insert(key);
}

void PropertyDrafts::operationRefused(const AtomicOperation& operation) {
  clearViewportPropertyPreview(operation);
  endResolvingAssetPointers(resolvingAssetPointerKeys(operation));
  if (const ComponentAtomicOperation* component = operation.component();
      component && component->kind == ComponentOperationKind::set) {
    livePreviews.remove(
        previewKey(component->entityPath, component->componentType, component->propertyName));
    const std::string key = draftKey(component->componentType, component->propertyName);
    drafts.update([&](Drafts& all) {
      if (auto entity = all.find(component->entityPath); entity != all.end())
        entity->second.erase(key);
    });
    return;
  }
  if (const UsdPropertyAtomicOperation* property = operation.usdProperty();
      property && property->primPath == kWorldPath &&
      property->propertyName.rfind(kWorldNamespace, 0) == 0) {
    const std::string name = property->propertyName.substr(kWorldNamespace.size());
    livePreviews.remove(previewKey(kWorldPath, kWorldSettings, name));
    worldDrafts.update([&](auto& all) { all.erase(name); });
  }
}

void PropertyDrafts::stageApplied(bool preserveDrafts) {
  syncDraftsFromStage(preserveDrafts);
  // The server's value now stands where no edit of the property is on its way.
  livePreviews.clear();
  restoreQueuedPropertyDraftsAfterRefresh();
  std::set<std::string> resolved;
  resolved.swap(resolvingAssetPointersAwaitingRefresh);
  endResolvingAssetPointers(resolved);
}

void PropertyDrafts::discardDeferredCommits() {
  for (auto& [key, commit] : deferredPropertyCommitTasks)
    commit.task.cancel();
  deferredPropertyCommitTasks.clear();
}

void PropertyDrafts::syncDraftsFromStage(bool preservingExisting) {
  if (preservingExisting)
    return;
  drafts.set({});
  worldDrafts.set({});
}

void PropertyDrafts::restoreQueuedPropertyDraftsAfterRefresh() {
  Drafts restored = drafts.get();
  std::map<std::string, std::string> world = worldDrafts.get();
  auto restore = [&](const AtomicOperation& operation) {
    if (const ComponentAtomicOperation* component = operation.component();
        component && component->kind == ComponentOperationKind::set) {
      writeDraft(component->entityPath, draftKey(component->componentType, component->propertyName),
                 component->value, restored);
      livePreviews.set(
          previewKey(component->entityPath, component->componentType, component->propertyName),
          component->value);
    } else if (const UsdPropertyAtomicOperation* property = operation.usdProperty();
               property && property->kind == UsdPropertyOperationKind::set &&
               property->primPath == kWorldPath &&
               property->propertyName.rfind(kWorldNamespace, 0) == 0) {
      world[property->propertyName.substr(kWorldNamespace.size())] = property->value;
    }
  };
  for (const AtomicOperation& operation : context_.queue.state.pendingOperations)
    restore(operation);
  if (context_.queue.state.inFlightOperation)
    restore(*context_.queue.state.inFlightOperation);
  for (const auto& [key, commit] : deferredPropertyCommitTasks) {
    for (const std::string& path : commit.entityPaths)
      writeDraft(path, draftKey(commit.componentType, commit.propertyName), commit.value, restored);
    if (commit.componentType == kWorldSettings)
      world[commit.propertyName] = commit.value;
  }
  drafts.set(std::move(restored));
  worldDrafts.set(std::move(world));
}

}  // namespace orvan::editor
