#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorTiming.h"
#include "Presentation/EditorClientDocumentBuilder.h"
#include "Presentation/EditorClientDocumentState.h"
#include "Presentation/EditorPresentationStore.h"
#include "Presentation/EditorSessionState.h"
#include "Presentation/PreparedStage.h"
#include "Presentation/SelectionSnapshot.h"

namespace orvan::editor {

// Publishes the client document and what the interface reads from it: the document is rebuilt
// off the main thread after each change of the stage or the project's assets and published whole;
// the presentation records, the selection and the inspector's snapshot follow it.
class DocumentPublisher {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& background;
    const Observable<std::shared_ptr<const PreparedStage>>& stage;
    EditorSessionState& session;
    EditorClientDocumentState& clientDocument;
    EditorPresentationStore& presentation;
    const EditorTiming& timing;
  };

  explicit DocumentPublisher(Context context) : context_(context) {}
  DocumentPublisher(const DocumentPublisher&) = delete;
  DocumentPublisher& operator=(const DocumentPublisher&) = delete;

  // The project's asset rows the document is built from.
  std::vector<ProjectAssetItem> projectAssets;
  // Assets created in the scene that the stage does not list yet.
  std::vector<UsdAsset> pendingCreatedAssets;
  // Store items placed in the scene for a look; they have hierarchy paths but no prims.
  StoreScenePreviews storeScenePreviews;
  std::uint64_t clientDocumentBuildGeneration = 0;
  bool clientDocumentPendingStageChanged = false;
  bool clientDocumentPendingProjectChanged = false;

  // Rebuilds the document off the main thread; requests that come while one is under way are
  // merged, and only the newest build is published.
  void scheduleClientDocumentRebuild(bool stageChanged, bool projectChanged);
  void publishClientDocument(std::shared_ptr<const EditorClientDocumentSnapshot> snapshot,
                             std::uint64_t generation, Duration elapsed);
  // Publishes a first document of the current stage and assets at once, for every reader.
  void publishInitialDocument();
  // Shows a structural edit of the stage in the hierarchy at once, ahead of the full build.
  void publishStructuralClientDocumentPatch();
  void rebuildStageIndex();
  void rebuildPresentationIndex();

  // Selects prims from a view and points the inspector at them; the highlight shows at once, the
  // inspector's data follows on the next turn.
  void selectPrims(std::string primaryPath, std::vector<std::string> paths);
  // Clears the selection and shows the empty inspector, for a scene being replaced.
  void clearSceneSelection();
  // Selects an asset of the project pane and points the inspector at it.
  void selectProjectAsset(const std::string& path);
  void scheduleSelectionSnapshot(std::string primaryPath, std::vector<std::string> paths,
                                 std::uint64_t serial);
  // Drops selected paths that the document no longer has, and refreshes the inspector's data.
  void reconcileSessionSelectionWithStage();
  bool isStorePreviewPath(std::string_view path) const;

 private:
  // Lets replaced documents go on a background thread: the last reference to a large stage
  // should not be dropped on the main thread.
  void retire(std::vector<std::shared_ptr<const EditorClientDocumentSnapshot>> snapshots);

  Context context_;
  LifetimeToken lifetime_;
  TaskSlot clientDocumentBuildTask_;
  TaskSlot selectionSnapshotTask_;
  std::shared_ptr<EditorClientDocumentBuilder> clientDocumentBuilder_ =
      std::make_shared<EditorClientDocumentBuilder>();
};

}  // namespace orvan::editor
