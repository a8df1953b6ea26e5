// The client document and what the interface reads from it: the document is rebuilt off the main
// thread after each change of the stage or the project's assets, published whole, and the
// presentation records, the selection and the inspector's snapshot follow it.
#include <chrono>
#include <cstdio>

#include <spdlog/spdlog.h>

#include "Presentation/DocumentPublisher.h"

namespace orvan::editor {

namespace {

double milliseconds(Duration elapsed) {
  return std::chrono::duration<double, std::milli>(elapsed).count();
}

std::string elapsedMilliseconds(Duration elapsed) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", milliseconds(elapsed));
  return text;
}

}  // namespace

void DocumentPublisher::scheduleClientDocumentRebuild(bool stageChanged, bool projectChanged) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  // A merged rebuild must remember every cause it stands for.
  clientDocumentPendingStageChanged = clientDocumentPendingStageChanged || stageChanged;
  clientDocumentPendingProjectChanged = clientDocumentPendingProjectChanged || projectChanged;
  const std::uint64_t generation = ++clientDocumentBuildGeneration;
  EditorClientDocumentBuildInput input{.stage = context_.stage.get(),
                                       .projectAssets = projectAssets,
                                       .pendingCreatedAssets = pendingCreatedAssets,
                                       .generation = generation};
  const WeakLifetime weak = lifetime_.weak();
  MainExecutor& main = context_.main;
  clientDocumentBuildTask_.replace(postTaskAndReply(
      context_.background, main,
      [builder = clientDocumentBuilder_, input = std::move(input), &main](std::stop_token token) {
        const TimePoint started = main.now();
        auto snapshot = builder->build(input, token);
        return std::make_pair(std::move(snapshot), main.now() - started);
      },
      [this, weak,
       generation](std::pair<std::shared_ptr<const EditorClientDocumentSnapshot>, Duration> built) {
        if (!weak.isAlive() || !built.first)
          return;
        publishClientDocument(std::move(built.first), generation, built.second);
      }));
}

void DocumentPublisher::publishClientDocument(
    std::shared_ptr<const EditorClientDocumentSnapshot> snapshot, std::uint64_t generation,
    Duration elapsed) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  if (generation != clientDocumentBuildGeneration)
    return;  // a newer build is under way
  const bool stageChanged = std::exchange(clientDocumentPendingStageChanged, false);
  const bool projectChanged = std::exchange(clientDocumentPendingProjectChanged, false);
  clientDocumentBuildTask_.clear();
  retire(context_.clientDocument.publish(std::move(snapshot), stageChanged, projectChanged));
  if (stageChanged)
    rebuildStageIndex();
  rebuildPresentationIndex();
  context_.timing.projectTiming(
      context_.main.now(),
      "client document publish stage=" + std::string(stageChanged ? "1" : "0") + " project=" +
          (projectChanged ? "1" : "0") + " buildElapsedMs=" + elapsedMilliseconds(elapsed));
}

void DocumentPublisher::publishInitialDocument() {
  retire(context_.clientDocument.publish(
      EditorClientDocumentState::makeSnapshot(context_.stage.get(), projectAssets), true, true));
  rebuildPresentationIndex();
}

void DocumentPublisher::publishStructuralClientDocumentPatch() {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const TimePoint started = context_.main.now();
  auto patched = withReplacedStage(context_.clientDocument.current(), context_.stage.get());
  std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> retired{
      context_.clientDocument.snapshot.get()};
  context_.clientDocument.snapshot.set(patched);
  retired.push_back(std::exchange(context_.clientDocument.hierarchyProjection.snapshot, patched));
  context_.clientDocument.hierarchyProjection.revision.set(
      context_.clientDocument.hierarchyProjection.revision.get() + 1);
  retire(std::move(retired));
  rebuildStageIndex();
  spdlog::info("structural patch publish elapsedMs={}",
               elapsedMilliseconds(context_.main.now() - started));
  // Whatever build is under way started from the stage before the edit: start over.
  scheduleClientDocumentRebuild(true, false);
}

void DocumentPublisher::rebuildStageIndex() {
  // The document's prim indexes serve the model as they are; what remains is to keep the
  // selection to prims that still exist.
  reconcileSessionSelectionWithStage();
}

void DocumentPublisher::rebuildPresentationIndex() {
  context_.presentation.rebuild(context_.clientDocument.snapshot.get());
}

void DocumentPublisher::retire(
    std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> snapshots) {
  context_.background.post([snapshots = std::move(snapshots)]() mutable { snapshots.clear(); });
}

// ---- Selection

bool DocumentPublisher::isStorePreviewPath(std::string_view path) const {
  return storeScenePreviews.find(std::string(path)) != storeScenePreviews.end();
}

void DocumentPublisher::selectPrims(std::string primaryPath, std::vector<std::string> paths) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const std::uint64_t serial = context_.session.applySceneSelection(primaryPath, paths, true);
  scheduleSelectionSnapshot(std::move(primaryPath), std::move(paths), serial);
}

void DocumentPublisher::clearSceneSelection() {
  const std::uint64_t serial = context_.session.applySceneSelection("", {}, true);
  context_.session.replaceSceneSelectionSnapshot(EditorSelectionSnapshot::empty(), serial);
}

void DocumentPublisher::selectProjectAsset(const std::string& path) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const ProjectAssetItem* row = context_.clientDocument.current().projectAsset(path);
  const UsdAsset* material = context_.clientDocument.current().materialAsset(path);
  if (!row && !material)
    return;
  ProjectAssetSelection selection{path, row ? row->kind : material->kind};
  context_.session.applyProjectAssetSelection(selection);
  context_.presentation.selectedAsset.set(std::move(selection));
  context_.presentation.reconcileSelectionAfterDataUpdate();
}

void DocumentPublisher::scheduleSelectionSnapshot(std::string primaryPath,
                                                  std::vector<std::string> paths,
                                                  std::uint64_t serial) {
  ORVAN_ASSERT_MAIN_THREAD(context_.main);
  const WeakLifetime weak = lifetime_.weak();
  // Two turns of the main loop: the selection's highlight draws first, and a fast series of clicks
  // computes only the last snapshot, since each click replaces the task of the one before.
  auto compute = [this, weak, primaryPath = std::move(primaryPath), paths = std::move(paths),
                  serial]() {
    if (!weak.isAlive())
      return;
    selectionSnapshotTask_.clear();
    const TimePoint started = context_.main.now();
    EditorSelectionSnapshot snapshot = selectionSnapshot(context_.clientDocument.current(),
                                                         storeScenePreviews, primaryPath, paths);
    if (context_.timing.timingLogsEnabled) {
      spdlog::info("snapshot components={} attributes={} elapsedMs={}", snapshot.components.size(),
                   snapshot.attributes.size(), elapsedMilliseconds(context_.main.now() - started));
    }
    context_.session.replaceSceneSelectionSnapshot(std::move(snapshot), serial);
  };
  selectionSnapshotTask_.replace(context_.main.postAfter(
      Duration::zero(), [this, weak, compute = std::move(compute)]() mutable {
        if (!weak.isAlive())
          return;
        selectionSnapshotTask_.replace(
            context_.main.postAfter(Duration::zero(), std::move(compute)));
      }));
}

void DocumentPublisher::reconcileSessionSelectionWithStage() {
  const EditorClientDocumentSnapshot& document = context_.clientDocument.current();
  const SceneSelectionState current = context_.session.sceneSelection.get();
  auto exists = [&](const std::string& path) {
    return document.prim(path) != nullptr || isStorePreviewPath(path);
  };
  std::vector<std::string> kept;
  for (const std::string& path : current.paths) {
    if (exists(path))
      kept.push_back(path);
  }
  std::string primary = current.primaryPath;
  if (!primary.empty() && !exists(primary))
    primary = kept.empty() ? "" : kept.front();
  std::uint64_t serial = current.serial;
  if (kept != current.paths || primary != current.primaryPath) {
    serial = context_.session.applySceneSelection(primary, kept, false);
  }
  // The inspector shows the new data of the selection either way.
  scheduleSelectionSnapshot(std::move(primary), std::move(kept), serial);
}

}  // namespace orvan::editor
