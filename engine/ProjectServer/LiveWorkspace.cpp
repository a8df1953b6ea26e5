#include "ProjectServer/LiveWorkspace.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>

#include "Inspector/StageInspector.h"
#include "Store/AtomicFile.h"
#include "Store/ContentHash.h"
#include "Store/StoreRecovery.h"
#include "UsdText/LayerWriter.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

std::int64_t nowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The layer files a change set touches, relative to the project folder, each once.
std::vector<std::string> layersOf(const ChangeSet& changes) {
  std::set<std::string> layers;
  for (const LayerChange& change : changes.changes)
    layers.insert(change.layer);
  return {layers.begin(), layers.end()};
}

// Only the changes of one layer's file: what a crash left unwritten in it. Muting is the
// workspace's state, not the file's.
ChangeSet changesOfLayer(const ChangeSet& changes, const std::string& layer) {
  ChangeSet kept;
  for (const LayerChange& change : changes.changes) {
    if (change.layer == layer && change.kind != ChangeKind::LayerMute)
      kept.changes.push_back(change);
  }
  return kept;
}

// A layer replaced as a whole: what another program's change of the file is to the log.
LayerChange wholeLayerChange(const std::string& layer, std::optional<std::string> before,
                             std::string after) {
  LayerChange change;
  change.kind = ChangeKind::LayerFile;
  change.layer = layer;
  change.before = std::move(before);
  change.after = std::move(after);
  return change;
}

// The layers of a scene's stack, and the sublayers it names that are missing (inside the project
// folder), which may appear.
std::vector<std::string> layersToWatch(const EditableScene& scene, const fs::path& projectRoot) {
  std::vector<std::string> layers = scene.layerStack();
  const std::size_t held = layers.size();
  for (std::size_t i = 0; i < held; ++i) {
    const fs::path folder = fs::path(layers[i]).parent_path();
    for (const std::string& sub : scene.findLayer(layers[i])->subLayerPaths()) {
      const std::string wanted = (folder / sub).lexically_normal().string();
      const fs::path within = fs::path(wanted).lexically_relative(projectRoot);
      const bool inside = !within.empty() && *within.begin() != "..";
      if (inside && !scene.findLayer(wanted) &&
          std::find(layers.begin(), layers.end(), wanted) == layers.end()) {
        layers.push_back(wanted);
      }
    }
  }
  return layers;
}

// The scene's muted layers as the store names them: relative to the project folder, sorted.
std::vector<std::string> relativeMutes(const EditableScene& scene) {
  std::set<std::string> layers;
  for (const std::string& identifier : scene.mutedLayers())
    layers.insert(scene.relativeIdentifier(identifier));
  return {layers.begin(), layers.end()};
}

void logProblem(const std::string& text) {
  std::fprintf(stderr, "orvan_project_server: %s\n", text.c_str());
}

}  // namespace

editor::Result<std::unique_ptr<LiveWorkspace>, std::string> LiveWorkspace::open(
    const ProjectFolder& project, ChangeFeed& feed, LiveWorkspaceOptions options) {
  const std::string storePath = (project.root / options.storePath).string();
  StoreResult<std::unique_ptr<ProjectStore>> store = ProjectStore::open(storePath);
  if (!store.ok())
    return "The project's history store could not be opened: " + store.error().message;
  std::unique_ptr<LiveWorkspace> workspace(
      new LiveWorkspace(project, feed, std::move(options), std::move(*store)));
  if (std::optional<std::string> failed = workspace->recover())
    return "The project's files could not be brought up to date: " + *failed;
  return workspace;
}

LiveWorkspace::LiveWorkspace(const ProjectFolder& project, ChangeFeed& feed,
                             LiveWorkspaceOptions options, std::unique_ptr<ProjectStore> store)
    : project_(project), feed_(feed), options_(std::move(options)), store_(std::move(store)) {
  // The store names files relative to the project, so the history holds when the folder moves.
  LiveFileWriter::Hooks hooks{
      .aboutToReplace =
          [this](const LiveFileWriter::FileWrite& write) {
            return store_->recordWriteIntent(write.workspace, relative(write.path), write.revision,
                                             write.contentHash);
          },
      .written =
          [this](const LiveFileWriter::FileWrite& write) {
            WrittenFile written{.path = relative(write.path),
                                .revision = write.revision,
                                .contentHash = write.contentHash,
                                .stamp = write.stamp};
            if (StoreStatus recorded = store_->recordWriteBack(write.workspace, written);
                !recorded.ok()) {
              logProblem("recording the write of " + written.path +
                         " failed: " + recorded.error().message);
            }
          },
      .failed =
          [](const std::string& path, const std::string& reason) {
            logProblem("writing " + path + " failed, trying again: " + reason);
          }};
  writer_ = std::make_unique<LiveFileWriter>(std::move(hooks),
                                             LiveFileWriter::Options{.delay = options_.writeDelay});
}

LiveWorkspace::~LiveWorkspace() {
  if (StoreStatus flushed = flush(); !flushed.ok())
    logProblem("writing the last edits back failed: " + flushed.error().message);
  writer_.reset();
}

std::string LiveWorkspace::relative(const std::string& path) const {
  return fs::path(path).lexically_relative(project_.root).generic_string();
}

std::string LiveWorkspace::absolute(const std::string& path) const {
  return (project_.root / path).lexically_normal().string();
}

std::uint64_t LiveWorkspace::revision() {
  const std::lock_guard lock(mutex_);
  return head_;
}

StoreStatus LiveWorkspace::flush() {
  return writer_->flush();
}

// Brings every file the store knows up to the newest accepted revision that changed it, before
// anything is served: after a crash the log may hold edits that never reached their files.
std::optional<std::string> LiveWorkspace::recover() {
  const std::string& workspace = options_.workspace;
  StoreResult<std::uint64_t> head = store_->headRevision(workspace);
  if (!head.ok())
    return head.error().message;
  head_ = *head;
  if (head_ == 0) {
    // The project as the server first found it is the workspace's first revision: clients start
    // at 1 and take a lower number for an older stage.
    StoreResult<std::uint64_t> first =
        store_->appendRevision(NewRevision{.workspace = workspace,
                                           .author = "server",
                                           .label = "Project opened for editing",
                                           .timeMilliseconds = nowMilliseconds(),
                                           .changeSetText = encodeChangeSet(ChangeSet{}),
                                           .layerPaths = {}});
    if (!first.ok())
      return first.error().message;
    head_ = *first;
  }
  StoreResult<std::vector<LayerRecovery>> plan =
      planRecovery(*store_, workspace, {}, project_.rootPath());
  if (!plan.ok())
    return plan.error().message;
  for (const LayerRecovery& layer : *plan) {
    switch (layer.action) {
      case RecoveryAction::kUpToDate:
      case RecoveryAction::kUntracked:
        continue;
      case RecoveryAction::kReplay:
      case RecoveryAction::kMissing:
      case RecoveryAction::kExternalChange:
        break;
    }
    std::uint64_t base = layer.baseRevision;
    const std::string path = absolute(layer.path);
    std::optional<std::string> disk;
    if (layer.action != RecoveryAction::kReplay) {
      // Rebuilt from the newest snapshot; what the disk holds, if anything, comes after.
      if (layer.action == RecoveryAction::kExternalChange) {
        auto text = readFileText(path);
        if (text.ok())
          disk = std::move(*text);
      }
      StoreResult<std::vector<LayerSnapshot>> snapshots =
          store_->snapshotAtOrBefore(workspace, layer.lastRevision);
      if (!snapshots.ok())
        return snapshots.error().message;
      const auto snapshot = std::find_if(snapshots->begin(), snapshots->end(),
                                         [&](const auto& kept) { return kept.path == layer.path; });
      if (snapshot == snapshots->end()) {
        logProblem("no snapshot of " + layer.path + " to rebuild it from; it stays as it is");
        continue;
      }
      StoreResult<std::optional<std::string>> content = store_->blob(snapshot->blobHash);
      if (!content.ok())
        return content.error().message;
      if (!*content)
        return "the snapshot of " + layer.path + " is missing from the store";
      if (auto written = replaceFileAtomically(path, **content); !written.ok())
        return written.error().message;
      base = snapshot->revision;
    }
    StoreResult<std::vector<StoredRevision>> after =
        store_->revisionsAfter(workspace, base, layer.lastRevision);
    if (!after.ok())
      return after.error().message;
    auto loaded = EditableScene::load(path, project_.rootPath(), options_.limits.compose);
    if (auto* failure = std::get_if<std::string>(&loaded))
      return "the layer " + layer.path + " does not read: " + *failure;
    EditableScene& scene = *std::get<std::unique_ptr<EditableScene>>(loaded);
    for (const StoredRevision& stored : *after) {
      auto decoded = decodeChangeSet(stored.changeSetText);
      if (auto* failure = std::get_if<std::string>(&decoded))
        return "revision " + std::to_string(stored.revision) + " does not read: " + *failure;
      const ChangeSet own = changesOfLayer(std::get<ChangeSet>(decoded), layer.path);
      if (auto failed = applyChangeSet(scene, own))
        return "revision " + std::to_string(stored.revision) + " does not apply to " + layer.path +
               ": " + *failed;
    }
    const std::string text = scene.layerText(path);
    auto written = replaceFileAtomically(path, text);
    if (!written.ok())
      return written.error().message;
    if (StoreStatus recorded =
            store_->recordWriteBack(workspace, WrittenFile{.path = layer.path,
                                                           .revision = layer.lastRevision,
                                                           .contentHash = contentHash(text),
                                                           .stamp = *written});
        !recorded.ok()) {
      return recorded.error().message;
    }
    if (disk) {
      // The other program's content is kept: it becomes the newest revision of the file.
      const ChangeSet external{.changes = {wholeLayerChange(layer.path, text, *disk)}};
      StoreResult<std::uint64_t> appended =
          store_->appendRevision(NewRevision{.workspace = workspace,
                                             .author = "external",
                                             .clientId = "",
                                             .label = "change " + layer.path,
                                             .changeSetText = encodeChangeSet(external),
                                             .layerPaths = {layer.path}});
      if (!appended.ok())
        return appended.error().message;
      auto rewritten = replaceFileAtomically(path, *disk);
      if (!rewritten.ok())
        return rewritten.error().message;
      if (StoreStatus recorded =
              store_->recordWriteBack(workspace, WrittenFile{.path = layer.path,
                                                             .revision = *appended,
                                                             .contentHash = contentHash(*disk),
                                                             .stamp = *rewritten});
          !recorded.ok()) {
        return recorded.error().message;
      }
      head_ = *appended;
    }
  }
  return std::nullopt;
}

LiveWorkspace::SceneState& LiveWorkspace::sceneLocked(const std::string& scene) {
  SceneState& state = scenes_[scene];
  if (state.scene)
    return state;
  auto loaded = EditableScene::load(project_.absoluteScene(scene).string(), project_.rootPath(),
                                    options_.limits.compose);
  if (auto* failure = std::get_if<std::string>(&loaded)) {
    state.failure = *failure;
    return state;
  }
  state.failure.clear();
  state.scene = std::move(std::get<std::unique_ptr<EditableScene>>(loaded));
  // Every layer gets a snapshot the first time the store sees it, so that its content at any
  // later revision can be read back.
  std::map<std::string, std::string> unseen;
  for (const std::string& identifier : state.scene->layerStack()) {
    const std::string path = relative(identifier);
    auto record = store_->writeBack(options_.workspace, path);
    if (record.ok() && *record)
      continue;
    if (!state.scene->findLayer(identifier))
      continue;
    unseen[path] = state.scene->layerText(identifier);
  }
  if (!unseen.empty()) {
    StoreStatus kept = store_->snapshotContents(options_.workspace, head_, unseen);
    for (const auto& [path, text] : unseen) {
      // The file as it is on disk is what the workspace starts from; its record says so.
      auto disk = contentHashOfFile(absolute(path));
      if (!kept.ok() || !disk.ok())
        continue;
      kept = store_->recordWriteBack(options_.workspace,
                                     WrittenFile{.path = path,
                                                 .revision = head_,
                                                 .contentHash = *disk,
                                                 .stamp = stampOf(absolute(path))});
    }
    if (!kept.ok())
      logProblem("keeping the first snapshot of " + scene + " failed: " + kept.error().message);
  }
  restoreMutesLocked(state, scene);
  return state;
}

void LiveWorkspace::restoreMutesLocked(SceneState& state, const std::string& scene) {
  StoreResult<std::vector<std::string>> stored = store_->mutedLayers(options_.workspace, scene);
  if (!stored.ok()) {
    logProblem("reading the muted layers of " + scene + " failed: " + stored.error().message);
    return;
  }
  const std::vector<std::string> stack = state.scene->layerStack();
  std::vector<std::string> kept;
  for (const std::string& layer : *stored) {
    const std::string identifier = state.scene->absoluteIdentifier(layer);
    const bool present = identifier != state.scene->rootIdentifier() &&
                         std::find(stack.begin(), stack.end(), identifier) != stack.end() &&
                         state.scene->findLayer(identifier);
    if (!present) {
      logProblem("the muted layer " + layer + " of " + scene + " is gone; its mute is dropped");
      continue;
    }
    LayerChange mute;
    mute.kind = ChangeKind::LayerMute;
    mute.layer = layer;
    mute.before = "false";
    mute.after = "true";
    if (std::optional<std::string> failed = state.scene->applyChange(mute)) {
      logProblem("muting " + layer + " of " + scene + " again failed: " + *failed);
      continue;
    }
    kept.push_back(layer);
  }
  if (kept.size() != stored->size()) {
    const SceneMutes mutes{.scene = scene, .mutedLayers = kept};
    if (StoreStatus recorded = store_->recordMutedLayers(options_.workspace, mutes);
        !recorded.ok()) {
      logProblem("recording the muted layers of " + scene + " failed: " + recorded.error().message);
    }
  }
  state.storedMutes = relativeMutes(*state.scene);
}

editor::EditClientResponse LiveWorkspace::refusal(std::string message) {
  editor::EditClientResponse answer;
  answer.revision = head_;
  answer.message = std::move(message);
  return answer;
}

editor::EditClientResponse LiveWorkspace::edit(const EditRequest& request,
                                               const std::string& scene) {
  const std::lock_guard lock(mutex_);
  lookForExternalChangesLocked();
  SceneState& state = sceneLocked(scene);
  if (!state.scene)
    return refusal("The scene cannot be edited: " + state.failure);
  // Undo and redo stand alone: a request that holds one holds nothing else.
  for (const EditOperation& operation : request.operations) {
    if (operation.type != OperationType::History)
      continue;
    if (request.operations.size() != 1)
      return refusal("Undo and redo cannot be combined with other operations");
    return historyLocked(state, scene, request,
                         operation.kindAs<HistoryOperationKind>() == HistoryOperationKind::Undo);
  }
  EditResult planned = planEdit(*state.scene, request, ids_);
  if (!planned.accepted)
    return refusal(planned.message);
  std::vector<editor::ToolClientPrimOperation> operations;
  for (const PrimOperationRecord& operation : planned.primOperations) {
    operations.push_back({.kind = operation.kind,
                          .parentPath = operation.parentPath,
                          .primName = operation.primName,
                          .primitiveKind = operation.primitiveKind,
                          .sourcePath = operation.sourcePath});
  }
  const std::string label = request.label.empty() ? planned.message : request.label;
  editor::EditClientResponse answer =
      commitLocked(state, scene, request, planned.changes, label, planned.message,
                   std::move(planned.createdPrims), std::move(operations));
  if (answer.accepted)
    state.history.recordEdit(request.clientId, std::move(planned.changes), label);
  return answer;
}

editor::EditClientResponse LiveWorkspace::historyLocked(SceneState& state, const std::string& scene,
                                                        const EditRequest& request, bool undo) {
  const ClientHistory::Entry* entry =
      undo ? state.history.lastEdit(request.clientId) : state.history.lastUndone(request.clientId);
  if (!entry)
    return refusal(undo ? "Nothing to undo" : "Nothing to redo");
  const ChangeSet changes = undo ? invertChangeSet(entry->changes) : entry->changes;
  const std::string verb = undo ? "Undo " : "Redo ";
  const std::string label = verb + entry->label;
  editor::EditClientResponse answer =
      commitLocked(state, scene, request, changes, label, label, {}, {});
  if (!answer.accepted) {
    // Someone else changed the same thing since: their edit stands.
    answer.message = "Can't " + std::string(undo ? "undo " : "redo ") + entry->label +
                     ": it was changed since by another edit";
    return answer;
  }
  if (undo)
    state.history.markUndone(request.clientId);
  else
    state.history.markRedone(request.clientId);
  return answer;
}

editor::EditClientResponse LiveWorkspace::commitLocked(
    SceneState& state, const std::string& scene, const EditRequest& request,
    const ChangeSet& changes, const std::string& label, const std::string& message,
    std::vector<editor::EditClientCreatedPrim> created,
    std::vector<editor::ToolClientPrimOperation> operations, bool writeBack) {
  if (changes.empty())
    return refusal("The edit did not change the scene");
  if (std::optional<std::string> failed = applyChangeSet(*state.scene, changes))
    return refusal(*failed);
  const std::vector<std::string> layers = layersOf(changes);
  // Mutes live in the store only: a revision that changes them carries the scene's new set.
  std::vector<std::string> mutes = relativeMutes(*state.scene);
  std::optional<SceneMutes> changedMutes;
  if (mutes != state.storedMutes)
    changedMutes = SceneMutes{.scene = scene, .mutedLayers = mutes};
  StoreResult<std::uint64_t> appended =
      store_->appendRevision(NewRevision{.workspace = options_.workspace,
                                         .author = request.author,
                                         .clientId = request.clientId,
                                         .label = label,
                                         .timeMilliseconds = nowMilliseconds(),
                                         .changeSetText = encodeChangeSet(changes),
                                         .layerPaths = layers,
                                         .mutes = std::move(changedMutes)});
  if (!appended.ok()) {
    // Not recorded, so not accepted: the scene goes back to what the log says.
    if (auto undone = applyChangeSet(*state.scene, invertChangeSet(changes)))
      logProblem("taking back an unrecorded edit failed: " + *undone);
    return refusal("The edit could not be saved: " + appended.error().message);
  }
  head_ = *appended;
  state.storedMutes = std::move(mutes);
  std::vector<std::string> absolutes;
  for (const std::string& layer : layers)
    absolutes.push_back(absolute(layer));
  if (writeBack)
    scheduleWriteBack(absolutes, head_);
  const bool filesChanged =
      std::any_of(changes.changes.begin(), changes.changes.end(), [](const LayerChange& change) {
        return change.kind == ChangeKind::LayerFile && (!change.before || !change.after);
      });
  publishRevisionLocked(scene, request.clientId, std::move(operations), filesChanged);
  editor::EditClientResponse answer;
  answer.accepted = true;
  answer.revision = head_;
  answer.message = message;
  if (!created.empty())
    answer.createdPrims = std::move(created);
  return answer;
}

void LiveWorkspace::publishRevisionLocked(const std::string& scene, const std::string& clientId,
                                          std::vector<editor::ToolClientPrimOperation> operations,
                                          bool filesChanged) {
  editor::ToolClientLine line{.type = "stageChanged",
                              .revision = head_,
                              .sourceClientId = clientId,
                              .scene = scene,
                              .workspace = options_.workspace};
  if (!operations.empty())
    line.primOperations = std::move(operations);
  feed_.publish(FeedScope{.project = project_.id, .scene = scene, .workspace = options_.workspace},
                editor::encodeJson(line));
  if (filesChanged) {
    const editor::ToolClientLine project{
        .type = "projectChanged", .revision = head_, .domains = std::vector<std::string>{"files"}};
    feed_.publishToProject(project_.id, editor::encodeJson(project));
  }
}

void LiveWorkspace::scheduleWriteBack(const std::vector<std::string>& layers,
                                      std::uint64_t revision) {
  for (const std::string& path : layers) {
    writer_->enqueue(options_.workspace, path, revision, [this, path]() -> LayerContent {
      const std::lock_guard lock(mutex_);
      for (auto& [name, state] : scenes_) {
        if (state.scene && state.scene->findLayer(path))
          return LayerContent{.revision = head_, .text = state.scene->layerText(path)};
      }
      throw std::runtime_error("no scene holds the layer any more");
    });
  }
}

LiveLayers LiveWorkspace::layers(const std::string& scene) {
  const std::lock_guard lock(mutex_);
  lookForExternalChangesLocked();
  SceneState& state = sceneLocked(scene);
  if (!state.scene)
    return LiveLayers{.failure = state.failure};
  const Stage& composed = state.scene->currentStage();
  if (!state.scene->composeFailure().empty())
    return LiveLayers{.failure = state.scene->composeFailure()};
  LiveLayers answer{.layers = {.revision = head_,
                               .root = state.scene->rootIdentifier(),
                               .mutedLayers = state.scene->mutedLayers(),
                               .layers = {}}};
  for (const StageLayer& used : composed.layers) {
    if (!used.layer)
      continue;
    std::string text = state.scene->findLayer(used.identifier)
                           ? state.scene->layerText(used.identifier)
                           : writeLayer(*used.layer);
    answer.layers.layers.push_back({.identifier = used.identifier, .text = std::move(text)});
  }
  return answer;
}

LiveStage LiveWorkspace::stage(const std::string& scene, const std::string& activeLayer) {
  const std::lock_guard lock(mutex_);
  lookForExternalChangesLocked();
  SceneState& state = sceneLocked(scene);
  if (!state.scene)
    return LiveStage{.failure = state.failure, .revision = head_};
  auto kept = state.inspections.find(activeLayer);
  if (kept != state.inspections.end() && kept->second.document && kept->second.revision == head_)
    return LiveStage{.document = kept->second.document, .revision = head_};
  if (kept == state.inspections.end()) {
    // A handful of active layers per scene in practice; the oldest goes first.
    constexpr std::size_t kMaxInspections = 4;
    if (state.inspections.size() >= kMaxInspections)
      state.inspections.erase(state.inspections.begin());
    kept = state.inspections.try_emplace(activeLayer).first;
  }
  // The kept stage: composed again only after structural edits; property edits change its layers
  // in place, and the inspector re-encodes just the prims they touched.
  const Stage& composed = state.scene->currentStage();
  if (!state.scene->composeFailure().empty())
    return LiveStage{.failure = state.scene->composeFailure(), .revision = head_};
  InspectOptions options{.activeLayer = activeLayer,
                         .sceneUri = project_.absoluteScene(scene).string(),
                         .maxOutputBytes = options_.limits.maxOutputBytes};
  IncrementalInspector::Result inspected = kept->second.inspector.inspect(composed, options);
  if (!inspected.ok() && !activeLayer.empty()) {
    // An active layer the stack does not hold is the editor's to fix: marks go against the
    // layer it would pick by itself.
    options.activeLayer.clear();
    inspected = kept->second.inspector.inspect(composed, options);
  }
  if (!inspected.ok())
    return LiveStage{.failure = *inspected.error, .revision = head_};
  kept->second.revision = head_;
  kept->second.document = std::make_shared<const InspectionDocument>(std::move(inspected.document));
  return LiveStage{.document = kept->second.document, .revision = head_};
}

void LiveWorkspace::lookForExternalChanges() {
  const std::lock_guard lock(mutex_);
  lookForExternalChangesLocked();
}

void LiveWorkspace::lookForExternalChangesLocked() {
  for (auto& [name, state] : scenes_) {
    if (!state.scene)
      continue;
    for (const std::string& identifier : layersToWatch(*state.scene, project_.root)) {
      const std::string path = relative(identifier);
      std::optional<LayerChange> change;
      std::string hash;
      FileStamp stamp;
      if (!state.scene->findLayer(identifier)) {
        // A layer of the stack that was missing may have come: it joins the scene.
        auto text = readFileText(identifier);
        if (!text.ok())
          continue;
        hash = contentHash(*text);
        stamp = stampOf(identifier);
        change = wholeLayerChange(path, std::nullopt, std::move(*text));
      } else {
        StoreResult<LiveFileCheck> check =
            detectExternalChange(*store_, options_.workspace, path, project_.rootPath());
        if (!check.ok() || check->state != LiveFileState::kChanged)
          continue;
        std::string current = state.scene->layerText(identifier);
        if (current == check->content)
          continue;
        hash = check->contentHash;
        stamp = check->stamp;
        change = wholeLayerChange(path, std::move(current), std::move(check->content));
      }
      EditRequest request;
      request.author = "external";
      // The file already holds this revision as the other program wrote it: it is not written
      // back in the server's own form.
      editor::EditClientResponse answer =
          commitLocked(state, name, request, ChangeSet{.changes = {std::move(*change)}},
                       "change " + path, "Changed " + path, {}, {}, /*writeBack=*/false);
      if (!answer.accepted) {
        logProblem("the change of " + path + " by another program is left out: " + answer.message);
        continue;
      }
      const WrittenFile written{
          .path = path, .revision = answer.revision, .contentHash = hash, .stamp = stamp};
      if (StoreStatus recorded = store_->recordWriteBack(options_.workspace, written);
          !recorded.ok()) {
        logProblem("recording the change of " + path + " failed: " + recorded.error().message);
      }
    }
  }
}

}  // namespace orvan::engine
