#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/EditClientSlot.h"
#include "Authoring/OperationQueue.h"
#include "Authoring/OptimisticOverlay.h"
#include "Authoring/PropertyDrafts.h"
#include "Authoring/StructuralEditing.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Launch/EditorScope.h"
#include "Launch/EditorTiming.h"
#include "Presentation/DocumentPublisher.h"
#include "ServerClient/StageRefresher.h"

namespace orvan::editor {

// The status words of a gizmo drag on its way to the server.
namespace gizmo_status {
inline constexpr std::string_view kQueued = "Queued transform";
inline constexpr std::string_view kPublishing = "Publishing transform";
inline constexpr std::string_view kPublishingLive = "Publishing live transform";
inline constexpr std::string_view kRetrying = "Retrying transform";
inline constexpr std::string_view kFailed = "Gizmo edit failed: ";
inline constexpr std::string_view kRejected = "Gizmo edit rejected: ";
inline constexpr std::string_view kSavingWhenDestinationReady =
    "Saving transform when the destination is ready";
inline constexpr std::string_view kCannotDuplicate = "Cannot duplicate ";
inline constexpr std::string_view kUpdated = "Updated";
}  // namespace gizmo_status

// The transform component the viewport's gizmo writes.
inline constexpr std::string_view kTransformComponent = "Transform";
// A live commit goes this long after the last line of a drag; a final one at once.
inline constexpr Duration kViewportGizmoLiveCommitDelay = std::chrono::milliseconds(150);
// A final commit that fails is tried this many more times, `attempt` times this delay apart.
inline constexpr int kViewportGizmoFinalCommitRetryCount = 2;
inline constexpr Duration kViewportGizmoFinalCommitRetryDelay = std::chrono::milliseconds(80);
// Preview sessions remembered for Alt-drag duplicates before the map starts over.
inline constexpr std::size_t kViewportDuplicateSessionLimit = 129;

// "x,y,z" with each value in "%.6g": the preview and draft text of a transform property.
std::string formatTransformValues(const std::vector<double>& values);
// Whether a refusal says the write would change nothing, which no retry can mend.
bool refusalMeansNoAuthoredChange(std::string_view message);

// Turns the stream of transform values the viewport reports while the user drags a gizmo into
// component writes at a bounded rate. It runs beside the serial queue, never through it: a drag
// must neither wait behind nor interleave with other edits, so each route waits for the other to
// be idle. Only the newest value of each property is kept while a batch is with the helper, and
// all properties of one drag go as one "components" line. An Alt-drag first duplicates the prim;
// every line of that drag then moves the one copy.
class GizmoCommits {
 public:
  struct Context {
    MainExecutor& main;
    BackgroundExecutor& exchanges;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    const EditorScope& scope;
    DocumentPublisher& documents;
    OptimisticOverlay& overlay;
    OperationQueue& queue;
    StructuralEditing& structure;
    PropertyDrafts& propertyDrafts;
    EditClientSlot& editClients;
    StageRefresher& stageRefresher;
    Observable<std::uint64_t>& revision;
    Observable<std::string>& status;
    const EditorTiming& timing;
  };

  explicit GizmoCommits(Context context) : context_(context) {}
  GizmoCommits(const GizmoCommits&) = delete;
  GizmoCommits& operator=(const GizmoCommits&) = delete;

  // The newest value of each transform property, by replacement key.
  std::map<std::string, ComponentAtomicOperation> pendingViewportGizmoOperations;
  bool viewportGizmoCommitInFlight = false;
  // A final value is among the pending ones: it goes at once and is retried.
  bool viewportGizmoCommitRefreshAfter = false;
  std::optional<TimePoint> lastViewportTransformActivity;
  // Preview session (or source path) to the path of its duplicate.
  std::map<std::string, std::string> viewportDuplicatePathsByPreviewSession;

  // One transform line of the viewport, on the main thread.
  void handleViewportTransformCommit(const std::string& entityPath, const std::string& propertyName,
                                     const std::vector<double>& values, bool final, bool duplicate,
                                     const std::string& previewSessionId);
  // The copy that the drag of this session moves; made on the session's first line.
  std::optional<std::string> viewportDuplicatePath(const std::string& sourcePath,
                                                   const std::string& previewSessionId);
  void queueViewportGizmoCommit(ComponentAtomicOperation operation, bool final);
  void flushViewportGizmoCommitIfReady();

  bool hasScheduledCommit() const { return viewportGizmoCommitTask_.isActive(); }
  // Values waiting for their delay or for the other route, or a batch with the helper.
  bool hasPendingChanges() const {
    return viewportGizmoCommitInFlight || hasScheduledCommit() ||
           !pendingViewportGizmoOperations.empty();
  }

 private:
  bool transitionHoldsBack() const;
  void scheduleCommit(Duration delay);
  void submitViewportGizmoCommit(std::vector<ComponentAtomicOperation> operations,
                                 bool refreshAfter, int attempt);
  void handleViewportGizmoCommitResponse(const EditClientResponse& response,
                                         std::vector<ComponentAtomicOperation> operations,
                                         bool refreshAfter, int attempt);
  void handleViewportGizmoCommitFailure(const Error& error,
                                        std::vector<ComponentAtomicOperation> operations,
                                        bool refreshAfter, int attempt);
  void retryViewportGizmoCommit(std::vector<ComponentAtomicOperation> operations, bool refreshAfter,
                                int attempt);
  void flushPendingViewportGizmoCommitAfterInFlight();
  void timingLog(const std::string& text) const;

  Context context_;
  TaskSlot viewportGizmoCommitTask_;
  TaskSlot retryTask_;
  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
