#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Authoring/ChangeSet.h"
#include "Authoring/ClientHistory.h"
#include "Authoring/EditOperation.h"
#include "Authoring/EditPlanner.h"
#include "Authoring/EditableScene.h"
#include "Inspector/IncrementalInspector.h"
#include "Inspector/StageLimits.h"
#include "ProjectServer/ChangeFeed.h"
#include "ProjectServer/ProjectFolder.h"
#include "ProjectServer/StageCache.h"
#include "Store/LiveFileWriter.h"
#include "Store/ProjectStore.h"
#include "orvan/wire/records/EditClientResponse.h"
#include "orvan/wire/records/SceneLayers.h"
#include "orvan/wire/records/ToolClientLine.h"

namespace orvan::engine {

struct LiveWorkspaceOptions {
  std::string workspace = "main";
  StageLimits limits = {};
  // How soon after an edit its layer files are written back, at the most often.
  std::chrono::milliseconds writeDelay{250};
  // Where the store lives, relative to the project folder (the history travels with the project).
  std::string storePath = ".orvan/store.sqlite";
};

// What a stage request gets: the inspection at a revision, or why there is none.
struct LiveStage {
  std::shared_ptr<const InspectionDocument> document = {};
  std::string failure = {};
  std::uint64_t revision = 0;
};

// What a layers request gets: every layer the scene uses, as text, at a revision; or why not.
struct LiveLayers {
  editor::SceneLayersResponse layers = {};
  std::string failure = {};
};

// One workspace of one hosted project while the server edits it. Its scenes are held in memory
// and edited in place; every accepted edit becomes the next revision in the project's store
// before it is answered, and the layer files catch up shortly after (atomically, a few times a
// second at the most). Edits of the workspace run one at a time; a stage request sees the scene
// between two edits, never inside one.
//
// The live files stay ordinary text layers that other programs may change; such a change becomes
// a revision of its own by "external" the next time the workspace looks (`lookForExternalChanges`,
// and before every edit and stage request). After a crash, `open` brings every file the store
// knows up to the last accepted revision before anything is served.
class LiveWorkspace {
 public:
  static editor::Result<std::unique_ptr<LiveWorkspace>, std::string> open(
      const ProjectFolder& project, ChangeFeed& feed, LiveWorkspaceOptions options = {});
  // Writes back what is pending.
  ~LiveWorkspace();
  LiveWorkspace(const LiveWorkspace&) = delete;
  LiveWorkspace& operator=(const LiveWorkspace&) = delete;

  // Plans, applies and records one request on `scene` (relative to the project folder). A refusal
  // changes nothing and carries the current revision.
  editor::EditClientResponse edit(const EditRequest& request, const std::string& scene);
  // The scene's inspection at the current revision, override marks against `activeLayer`.
  LiveStage stage(const std::string& scene, const std::string& activeLayer);
  // The text of every layer the scene uses now (held in memory or, for layers it only refers
  // to, as read), at the current revision.
  LiveLayers layers(const std::string& scene);
  std::uint64_t revision();
  // Turns changes of the live files by other programs into revisions.
  void lookForExternalChanges();
  // Writes every pending layer now and waits for it.
  StoreStatus flush();

  ProjectStore& store() { return *store_; }
  const std::string& workspace() const { return options_.workspace; }

 private:
  struct SceneState {
    std::unique_ptr<EditableScene> scene = {};
    ClientHistory history;  // per client, its own edits of this scene
    std::string failure = {};
    // Per active layer, an inspector that re-encodes only what changed, and its last document
    // with the revision it shows.
    struct Inspection {
      IncrementalInspector inspector = {};
      std::uint64_t revision = 0;
      std::shared_ptr<const InspectionDocument> document = {};
    };
    std::map<std::string, Inspection> inspections = {};
    // The muted layers the store holds for the scene (relative, sorted): an edit that leaves the
    // scene with another set records the new one with its revision.
    std::vector<std::string> storedMutes = {};
  };

  LiveWorkspace(const ProjectFolder& project, ChangeFeed& feed, LiveWorkspaceOptions options,
                std::unique_ptr<ProjectStore> store);

  // Nothing when all went well, else why not.
  std::optional<std::string> recover();
  SceneState& sceneLocked(const std::string& scene);
  // Mutes the layers the store says the scene had muted; those gone from it are dropped.
  void restoreMutesLocked(SceneState& state, const std::string& scene);
  void lookForExternalChangesLocked();
  editor::EditClientResponse refusal(std::string message);
  editor::EditClientResponse historyLocked(SceneState& state, const std::string& scene,
                                           const EditRequest& request, bool undo);
  void publishRevisionLocked(const std::string& scene, const std::string& clientId,
                             std::vector<editor::ToolClientPrimOperation> operations,
                             bool filesChanged);
  // Applies `changes`, records them as the next revision and tells the watchers; on any failure
  // the scene is as before and the answer says why.
  editor::EditClientResponse commitLocked(SceneState& state, const std::string& scene,
                                          const EditRequest& request, const ChangeSet& changes,
                                          const std::string& label, const std::string& message,
                                          std::vector<editor::EditClientCreatedPrim> created,
                                          std::vector<editor::ToolClientPrimOperation> operations,
                                          bool writeBack = true);
  void scheduleWriteBack(const std::vector<std::string>& layers, std::uint64_t revision);
  std::string relative(const std::string& absolute) const;
  std::string absolute(const std::string& relative) const;

  const ProjectFolder project_;
  ChangeFeed& feed_;
  const LiveWorkspaceOptions options_;
  std::unique_ptr<ProjectStore> store_;
  std::mutex mutex_;  // the scenes, the history and the head; held for a whole edit
  std::map<std::string, SceneState> scenes_;
  EntityIdSource ids_;
  std::uint64_t head_ = 0;
  std::unique_ptr<LiveFileWriter> writer_;
};

}  // namespace orvan::engine
