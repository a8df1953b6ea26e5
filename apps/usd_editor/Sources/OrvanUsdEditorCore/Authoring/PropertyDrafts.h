#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Authoring/AtomicOperation.h"
#include "Authoring/OperationQueue.h"
#include "Foundation/Executors.h"
#include "Foundation/Observable.h"
#include "Foundation/Task.h"
#include "Presentation/DocumentPublisher.h"
#include "Presentation/EditorSessionState.h"
#include "orvan/wire/records/StageInspection.h"

namespace orvan::editor {

// ---- The value grammar of inspector fields

// The numbers of a comma-separated list; none when any piece is not a whole number. Empty pieces
// are dropped; each piece may hold only digits, signs, a point and an exponent mark.
std::optional<std::vector<double>> parseNumberList(std::string_view text);
// Whether the text is a complete value of the kind: "number" one number, "vector2" two,
// "vector3" (and any other vector kind) three, anything else a text that is not blank.
bool valueIsValid(std::string_view value, std::string_view kind);
// Numbers in "%.6g" joined by "," without blanks; any other kind trimmed.
std::string normalizedValue(std::string_view value, std::string_view kind);
// `count` texts of a comma-separated draft, each number in "%.6g"; missing places are "0".
std::vector<std::string> splitVectorDraft(std::string_view text, std::size_t count);
// A number in "%.6g".
std::string formatNumber(double value);
std::string sliderCommitKey(std::string_view componentType, std::string_view propertyName,
                            const std::vector<std::string>& entityPaths);
// The key of a draft inside an entity's drafts.
std::string draftKey(std::string_view componentType, std::string_view propertyName);
// "entityPath|componentType|propertyName": previews and resolving asset pointers.
std::string previewKey(std::string_view entityPath, std::string_view componentType,
                       std::string_view propertyName);
// The properties the viewport can show without a new stage.
bool supportsViewportPropertyPreview(std::string_view componentType, std::string_view property);
// The asset pointer an operation sets and the server still has to resolve.
std::set<std::string> resolvingAssetPointerKeys(const AtomicOperation& operation);

inline constexpr std::string_view kWorldPath = "/World";
inline constexpr std::string_view kWorldSettings = "WorldSettings";
inline constexpr std::string_view kDefaultWorldColor = "0.03,0.035,0.045";
inline constexpr Duration kDeferredPropertyCommitDelay = std::chrono::milliseconds(40);
// 1/120 second, the spacing of preview publishes.
inline constexpr Duration kPropertyPreviewInterval = std::chrono::nanoseconds(8'333'333);

// Preview values the inspector shows for a property while its value travels, published at most
// 120 times a second.
class LivePropertyPreviewStore {
 public:
  explicit LivePropertyPreviewStore(MainExecutor& main) : main_(main) {}
  LivePropertyPreviewStore(const LivePropertyPreviewStore&) = delete;
  LivePropertyPreviewStore& operator=(const LivePropertyPreviewStore&) = delete;

  Observable<std::map<std::string, std::string>> values;
  std::map<std::string, std::string> pendingValues;
  std::optional<TimePoint> lastPublish;

  void set(const std::string& key, std::string value);
  void remove(const std::string& key);
  void schedulePublish();
  void publishPendingValues();
  void clear();
  bool hasScheduledPublish() const { return publishTask_.isActive(); }

 private:
  MainExecutor& main_;
  TaskSlot publishTask_;
  LifetimeToken lifetime_;
};

// What the inspector's fields show and send: a text draft per entity and property, the value
// grammar that decides what may go to the server, the 40 ms debounce that turns a drag into one
// or a few operations, and the rate-limited previews for the inspector and the viewport.
class PropertyDrafts {
 public:
  struct Context {
    MainExecutor& main;
    Observable<std::shared_ptr<const PreparedStage>>& stage;
    EditorSessionState& session;
    DocumentPublisher& documents;
    OperationQueue& queue;
    Observable<std::string>& status;
  };
  using Drafts = std::map<std::string, std::map<std::string, std::string>>;

  explicit PropertyDrafts(Context context) : context_(context), livePreviews(context.main) {}
  PropertyDrafts(const PropertyDrafts&) = delete;
  PropertyDrafts& operator=(const PropertyDrafts&) = delete;

 private:
  Context context_;

 public:
  // Shows component operations in the local stage before any reply (the component commands'
  // local effect, which sits above this part).
  std::function<void(std::span<const ComponentAtomicOperation>)> applyLocalComponentOperations =
      [](std::span<const ComponentAtomicOperation>) {};
  // Entity path to (draftKey to text).
  Observable<Drafts> drafts;
  Observable<std::map<std::string, std::string>> worldDrafts;
  // Debounce timers by commit key, with the value each will commit.
  struct DeferredCommit {
    TaskHandle task;
    std::vector<std::string> entityPaths;
    std::string componentType;
    std::string propertyName;
    std::string value;
  };
  std::map<std::string, DeferredCommit> deferredPropertyCommitTasks;
  std::map<std::string, EditorViewportPropertyPreview> pendingViewportPropertyPreviews;
  std::optional<TimePoint> lastViewportPropertyPreviewPublish;
  Observable<std::set<std::string>> resolvingAssetPointers;
  std::set<std::string> resolvingAssetPointersAwaitingRefresh;
  LivePropertyPreviewStore livePreviews;

  // ---- Reading
  std::vector<std::string> targetEntityPaths(std::string_view componentType,
                                             std::optional<std::string_view> propertyName);
  std::string draftValue(const UsdComponent& component, const ComponentProperty& property) const;
  std::vector<std::string> vectorDraftValues(const UsdComponent& component,
                                             const ComponentProperty& property,
                                             std::size_t count) const;
  std::string worldColorValue(std::string_view propertyName) const;
  std::string worldNumberValue(std::string_view propertyName, double fallback) const;
  bool hasDeferredCommits() const { return !deferredPropertyCommitTasks.empty(); }
  bool hasScheduledViewportPreview() const { return viewportPreviewTask_.isActive(); }

  // ---- Editing
  void updateDraft(const UsdComponent& component, const ComponentProperty& property,
                   const std::string& value, bool submit);
  void updateDraftSnapshot(const std::vector<std::string>& entityPaths,
                           const std::string& componentType, const std::string& propertyName,
                           const std::string& value);
  // Forgets the draft of one property of one entity: the stage's value shows again.
  void clearDraft(const std::string& entityPath, const std::string& componentType,
                  const std::string& propertyName);
  void commitRetainedNumericControl(const UsdComponent& component,
                                    const ComponentProperty& property, const std::string& value);
  void scheduleColorCommit(const UsdComponent& component, const ComponentProperty& property,
                           const std::vector<std::string>& entityPaths, const std::string& value);
  void publishViewportPropertyPreview(const std::vector<std::string>& entityPaths,
                                      const std::string& componentType,
                                      const std::string& propertyName, const std::string& value);
  void updateOptimisticProperty(const std::vector<std::string>& entityPaths,
                                const std::string& componentType, const std::string& propertyName,
                                const std::string& value, const std::string& statusLabel);
  void updateOptimisticComponentProperty(const std::vector<std::string>& entityPaths,
                                         const std::string& componentType,
                                         const std::string& propertyName, const std::string& value,
                                         const std::string& statusLabel);
  void resetComponentOverride(const UsdComponent& component, const ComponentProperty& property);
  void resetAttributeOverrideFromLayer(const UsdAttribute& attribute);
  void assignProjectAssetPointer(const UsdComponent& component, const ComponentProperty& property,
                                 std::string_view assetPath);
  void updateWorldAttribute(const std::string& propertyName, const std::string& value);
  void commitRetainedWorldNumber(const std::string& propertyName, double value, double minimum,
                                 double maximum);

  // ---- The queue and the refresher tell
  // After a final refusal or failure: the viewport drops the look, the field the server's value.
  void operationRefused(const AtomicOperation& operation);
  void operationAccepted(const AtomicOperation& operation);
  // After each applied stage: queued values win over what the new stage says.
  void stageApplied(bool preserveDrafts);
  // A full refresh: commits still waiting for their pause are dropped with the queue.
  void discardDeferredCommits();
  void restoreQueuedPropertyDraftsAfterRefresh();
  // With `preservingExisting` false every draft gives way to the stage.
  void syncDraftsFromStage(bool preservingExisting);
  void clearViewportPropertyPreview(const AtomicOperation& operation);
  void endResolvingAssetPointers(const std::set<std::string>& keys);

 private:
  void beginResolvingAssetPointers(const std::vector<std::string>& entityPaths,
                                   const std::string& componentType,
                                   const std::string& propertyName);
  void scheduleDeferredPropertyCommit(const std::string& key, DeferredCommit commit);
  void cancelDeferredCommit(const std::string& key);
  void scheduleViewportPropertyPreviewPublish();
  void publishViewportPropertyPreviewsNow(std::vector<EditorViewportPropertyPreview> previews);
  void writeDraft(const std::string& entityPath, const std::string& key, const std::string& value,
                  Drafts& into) const;
  std::string queuedStatus(std::string_view label) const;

  TaskSlot viewportPreviewTask_;
  LifetimeToken lifetime_;
};

}  // namespace orvan::editor
