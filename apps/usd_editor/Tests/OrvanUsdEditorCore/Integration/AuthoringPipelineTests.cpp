// The queue, the batch route and the overlay inside the model, with virtual time, against a
// scripted fake edit helper that runs as a real process on real pipes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "ScriptedHelperModelTest.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"
#include "Support/TemporaryFolder.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

// /World with A (child Leaf), B, and Set (an instance root) with its proxy Leg.
StageInspection sceneStage() {
  StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  UsdPrimNode world = testing::makePrimNode("/World");
  UsdPrimNode a = testing::makePrimNode("/World/A");
  a.children.push_back(testing::makePrimNode("/World/A/Leaf"));
  UsdPrimNode set = testing::makePrimNode("/World/Set");
  set.children.push_back(testing::makePrimNode("/World/Set/Leg"));
  world.children = {a, testing::makePrimNode("/World/B"), set};
  stage.rootPrims.push_back(world);
  testing::addPrimDetail(stage, "/World");
  testing::addPrimDetail(stage, "/World/A");
  testing::addPrimDetail(stage, "/World/A/Leaf");
  testing::addPrimDetail(stage, "/World/B");
  testing::addPrimDetail(stage, "/World/Set").instanceable = true;
  testing::addPrimDetail(stage, "/World/Set/Leg").instanceProxy = true;
  return stage;
}

class AuthoringPipelineTest : public ScriptedHelperModelTest {
 protected:
  void SetUp() override {
    startModel(sceneStage());
    ASSERT_TRUE(model_->currentStage().prims.size() == 6u) << model_->status.get();
    model_->revision.set(0);
    statusWatch_ =
        model_->status.subscribe([this](const std::string& text) { statuses_.push_back(text); });
  }
  // Whether the status line said `text` at some point since the last call.
  bool said(const std::string& text) {
    const bool found = std::find(statuses_.begin(), statuses_.end(), text) != statuses_.end();
    statuses_.clear();
    return found;
  }

  // The helper's answers to the next commands, in order.
  void script(std::initializer_list<std::string> answers) {
    std::ofstream out(folder_ / "journal.script", std::ios::app);
    for (const std::string& answer : answers)
      out << answer << '\n';
  }
  static std::string reply(bool accepted, std::uint64_t revision, const std::string& message) {
    return std::string("{\"accepted\":") + (accepted ? "true" : "false") +
           ",\"revision\":" + std::to_string(revision) + ",\"message\":\"" + message + "\"}";
  }
  // The lines the helper received, apart from its handshakes.
  std::vector<std::string> commands() const {
    std::vector<std::string> lines;
    std::istringstream in(testing::fileText(journal_));
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("launch", 0) != 0 && line != "ping" && line != "quit")
        lines.push_back(line);
    }
    return lines;
  }
  bool has(const std::string& path) const { return model_->stage.get()->prim(path) != nullptr; }
  UsdPropertyAtomicOperation property(std::string value) const {
    return {.kind = UsdPropertyOperationKind::set,
            .primPath = "/World/A",
            .propertyName = "size",
            .value = std::move(value)};
  }
  void queue(AtomicOperation operation) {
    model_->operations.queue(std::move(operation));
    model_->operations.submitNextOperation();
  }

  std::vector<std::string> statuses_;
  Subscription statusWatch_;
};

TEST_F(AuthoringPipelineTest, EditsCoalesceByKeyAndGoOneAtATimeAgainstTheNewestRevision) {
  model_->revision.set(10);
  queue(AtomicOperation{property("1")});
  EXPECT_EQ(model_->status.get(), "Publishing set size");
  EXPECT_TRUE(model_->operations.state.submitInFlight);
  queue(AtomicOperation{property("2")});
  EXPECT_EQ(model_->status.get(), "Queued live edit");
  queue(AtomicOperation{HistoryAtomicOperation{HistoryOperationKind::undo}});
  queue(AtomicOperation{property("3")});
  queue(AtomicOperation{property("1")});  // the one in flight: dropped silently
  ASSERT_EQ(model_->operations.state.pendingOperations.size(), 2u);
  EXPECT_EQ(model_->operations.state.pendingOperations[0].label(), "Undo")
      << "a replaced edit gives up its place in the line";
  EXPECT_EQ(*model_->operations.state.pendingOperations[1].usdProperty(), property("3"));

  script({reply(true, 0, "saved one"), reply(true, 40, "undone"), reply(true, 0, "saved three")});
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(),
              ElementsAre("usd-property\t10\tset\t/World/A\tsize\t1", "history\t11\tundo",
                          "usd-property\t40\tset\t/World/A\tsize\t3"))
      << "0 means one more; each command names the revision known when it is sent";
  EXPECT_EQ(model_->revision.get(), 41u);
  EXPECT_FALSE(model_->operations.state.submitInFlight);
}

TEST_F(AuthoringPipelineTest, RefusalsAndFailuresInTheirWords) {
  model_->revision.set(5);
  script({reply(false, 0, "nope")});
  queue(AtomicOperation{HistoryAtomicOperation{HistoryOperationKind::redo}});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "Live edit rejected: nope");
  EXPECT_EQ(model_->revision.get(), 5u) << "a refusal that says 0 leaves the revision";

  script({reply(true, 0, "x").substr(0, 10)});  // not JSON: a failure, though applied
  queue(AtomicOperation{HistoryAtomicOperation{HistoryOperationKind::undo}});
  scheduler_.runUntilQuiet();
  EXPECT_THAT(model_->status.get(), ::testing::StartsWith("Live edit failed: "));

  script({"DIE"});
  queue(AtomicOperation{HistoryAtomicOperation{HistoryOperationKind::undo}});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(),
            "Live edit failed: The edit helper stopped before confirming the change (helper exit "
            "status 9): boom");
  EXPECT_EQ(commands().size(), 3u) << "an undo is never repeated by the helper";

  script({reply(false, 0, "Already up to date")});
  queue(AtomicOperation{property("9")});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "Already up to date");
}

TEST_F(AuthoringPipelineTest, IdempotentWritesAreRetriedTwiceWithGrowingDelays) {
  script({reply(false, 0, "Connection reset"), reply(false, 0, "socket closed"),
          reply(false, 0, "transport gone")});
  queue(AtomicOperation{property("1")});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "Reconnecting live edit");
  EXPECT_EQ(commands().size(), 1u);
  scheduler_.advanceBy(49ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 1u) << "the first retry waits 50 ms";
  scheduler_.advanceBy(1ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 2u);
  scheduler_.advanceBy(99ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 2u) << "the second waits 100 ms";
  scheduler_.advanceBy(1ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 3u);
  EXPECT_EQ(model_->status.get(), "Live edit rejected: transport gone");
  EXPECT_TRUE(model_->operations.state.operationRetryAttempts.empty());
}

TEST_F(AuthoringPipelineTest, ARetryWithANewerEditWaitingSendsOnlyTheNewer) {
  script({reply(false, 0, "service unavailable"), reply(true, 0, "saved")});
  queue(AtomicOperation{property("old")});
  queue(AtomicOperation{property("new")});
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("usd-property\t0\tset\t/World/A\tsize\told",
                                      "usd-property\t0\tset\t/World/A\tsize\tnew"));
  EXPECT_TRUE(said("Publishing latest edit"));
  EXPECT_TRUE(model_->operations.state.operationRetryAttempts.empty());
}

TEST_F(AuthoringPipelineTest, LayerOperationsRunOnceWithTheSessionSpliced) {
  model_->scope.current.update([](SharedClientScope& place) { place.activeLayer = "anim.usda"; });
  model_->revision.set(3);
  script({reply(false, 0, "layer refused")});
  queue(AtomicOperation{LayerAtomicOperation{.kind = LayerOperationKind::mute,
                                             .identifier = "anim.usda",
                                             .name = "",
                                             .direction = "",
                                             .muted = true,
                                             .moveRootContentToBaseLayer = false}});
  EXPECT_EQ(model_->status.get(), "Publishing disable layer");
  scheduler_.runUntilQuiet();
  const std::string address = model_->server.addresses.authoringAddress;
  ASSERT_EQ(commands().size(), 1u);
  EXPECT_EQ(commands()[0], "oneshot --json --author " + model_->identity.userName.get() +
                               " --workspace main --client-id " + journal_.string() + " --scene " +
                               configuration_.scenePath + " --active-layer anim.usda " + address +
                               " 3 --layer-op mute anim.usda true");
  EXPECT_EQ(model_->status.get(), "Live edit rejected: layer refused")
      << "a refusal with a failing exit status is still read as an answer";
}

TEST_F(AuthoringPipelineTest, GatesHoldEditsBack) {
  bool preview = true;
  model_->operations.hooks.historyPreviewOpen = [&] { return preview; };
  queue(AtomicOperation{property("1")});
  EXPECT_EQ(model_->status.get(), "History preview is read-only");
  EXPECT_TRUE(model_->operations.state.pendingOperations.empty());
  preview = false;

  model_->scope.seamlessWorkspaceTransitionInFlight = true;
  queue(AtomicOperation{property("1")});
  EXPECT_EQ(model_->status.get(), "Saving change when the destination is ready");
  EXPECT_EQ(model_->operations.state.pendingOperations.size(), 1u);
  preview = true;
  model_->operations.submitNextOperation();
  EXPECT_TRUE(model_->operations.state.pendingOperations.empty())
      << "edits queued before a preview opened are dropped without a word";
  model_->scope.seamlessWorkspaceTransitionInFlight = false;
  preview = false;

  bool layerPending = true;
  model_->operations.hooks.pendingAddedLayerActivation = [&] { return layerPending; };
  queue(AtomicOperation{property("2")});
  EXPECT_EQ(model_->status.get(), "Waiting for added layer");
  layerPending = false;

  model_->operations.queue(
      AtomicOperation{UsdPropertyAtomicOperation{.kind = UsdPropertyOperationKind::set,
                                                 .primPath = "/World/Set/Leg",
                                                 .propertyName = "x",
                                                 .value = "1"}});
  EXPECT_EQ(model_->status.get(), "Part of an instance \u2014 disable Instance on Set to edit it");
  EXPECT_EQ(model_->operations.state.pendingOperations.size(), 1u);
  model_->operations.submitNextOperation();
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 1u) << "only the one admitted edit went";
}

TEST_F(AuthoringPipelineTest, ADeferredSwitchWaitsForTheQueueAndIsCancelledByAFailure) {
  std::vector<std::string> switched;
  model_->operations.hooks.performWorkspaceSwitch = [&](const std::string& to) {
    switched.push_back(to);
  };
  script({reply(true, 0, "ok"), reply(false, 0, "bad value")});
  queue(AtomicOperation{property("1")});
  model_->operations.deferWorkspaceSwitch("review", "Review");
  EXPECT_EQ(model_->status.get(), "Saving changes before opening Review");
  EXPECT_TRUE(switched.empty());
  scheduler_.runUntilQuiet();
  EXPECT_THAT(switched, ElementsAre("review"));

  queue(AtomicOperation{HistoryAtomicOperation{HistoryOperationKind::undo}});
  model_->operations.deferWorkspaceSwitch("review", "Review");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(),
            "Destination switch paused because the last edit was not saved: bad value");
  EXPECT_EQ(switched.size(), 1u);
}

TEST_F(AuthoringPipelineTest, AQueuedPrimShowsAtOnceAndARefusalTakesItBack) {
  PrimAtomicOperation add;
  add.kind = PrimOperationKind::add;
  add.parentPath = "/World";
  add.primName = "Box";
  add.primitiveKind = "cube";
  script({reply(false, 0, "no room")});
  model_->operations.queue(AtomicOperation{add});
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kYes);
  EXPECT_TRUE(has("/World/Box")) << "before any reply";
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/Box");
  model_->operations.submitNextOperation();
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("prims\t0\t1\tadd\t/World\tBox\tcube"));
  EXPECT_TRUE(said("Live edit rejected: no room"));
  EXPECT_FALSE(model_->overlay.state.holdsEdits());
  EXPECT_FALSE(has("/World/Box")) << "the refresh after a refusal restores the truth";
}

TEST_F(AuthoringPipelineTest, AFullRefreshThrowsQueuedEditsAndTheOverlayAway) {
  queue(AtomicOperation{property("1")});
  model_->structure.deletePrim("/World/B");  // busy: queued, and shown at once
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kNo);
  ASSERT_EQ(model_->operations.state.pendingOperations.size(), 1u);
  ASSERT_TRUE(model_->overlay.state.holdsEdits());
  model_->stageRefresher.refresh();
  EXPECT_TRUE(model_->operations.state.pendingOperations.empty());
  EXPECT_FALSE(model_->overlay.state.holdsEdits());
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(has("/World/B"));
  EXPECT_EQ(commands().size(), 1u) << "only the edit already with the helper went";
}

TEST_F(AuthoringPipelineTest, ARefusedPrimOnAStaleBaseIsRetriedTwiceThenRolledBack) {
  script({reply(false, 7, "stale"), reply(false, 8, "stale"), reply(false, 9, "stale")});
  model_->structure.renamePrim("/World/B", "Bee");
  scheduler_.runUntilQuiet();
  for (int i = 0; i < 2; ++i) {
    scheduler_.advanceBy(100ms);
    scheduler_.runUntilQuiet();
  }
  EXPECT_THAT(commands(), ElementsAre("prims\t0\t1\treparent\t/World/B\t/World\tBee",
                                      "prims\t7\t1\treparent\t/World/B\t/World\tBee",
                                      "prims\t8\t1\treparent\t/World/B\t/World\tBee"));
  EXPECT_TRUE(said("Live edit rejected: stale"));
  EXPECT_EQ(model_->revision.get(), 9u);
  EXPECT_TRUE(has("/World/B"));
  EXPECT_FALSE(has("/World/Bee"));
}

TEST_F(AuthoringPipelineTest, TheOverlaySurvivesOlderStagesAndDiesWhenTheServerCatchesUp) {
  script({reply(true, 20, "deleted")});
  model_->structure.deletePrim("/World/B");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "deleted");
  EXPECT_FALSE(has("/World/B"));
  const auto serverStage = PreparedStage::prepare(sceneStage());
  model_->overlay.applyOptimisticStructuralOverlay(serverStage, 19);
  scheduler_.runUntilQuiet();
  EXPECT_FALSE(has("/World/B")) << "an older stage still shows the delete";
  model_->overlay.applyOptimisticStructuralOverlay(serverStage, 20);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(has("/World/B")) << "a stage as new as the delete is the truth";
  EXPECT_FALSE(model_->overlay.state.holdsEdits());
}

TEST_F(AuthoringPipelineTest, DeleteDuplicateRenameAndReparentThroughTheBatchRoute) {
  model_->documents.selectPrims("/World/A", {"/World/A", "/World/A/Leaf"});
  script({reply(true, 3, "deleted")});
  model_->structure.deleteSelectedPrims();
  EXPECT_EQ(model_->status.get(), "Publishing delete A");
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("prims\t0\t1\tdelete\t/World/A"))
      << "a selected parent and child are one delete";
  EXPECT_FALSE(has("/World/A"));
  EXPECT_FALSE(has("/World/A/Leaf"));

  script({reply(true, 4, "copied")});
  model_->structure.duplicatePrim("/World/B");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().back(), "prims\t3\t1\tduplicate\t/World/B\t/World\tB_1");
  EXPECT_TRUE(has("/World/B_1"));
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/B_1");

  model_->structure.renamePrim("/World/B", "");
  EXPECT_EQ(model_->status.get(), "Prim name cannot be empty");
  model_->structure.renamePrim("/World/B", "B_1");
  EXPECT_EQ(model_->status.get(), "Name already exists: B_1");
  model_->structure.renamePrim("/World/Set/Leg", "Arm");
  EXPECT_EQ(model_->status.get(), "Cannot rename /World/Set/Leg");
  script({reply(true, 5, "renamed")});
  model_->structure.renamePrim("/World/B", "2 fast!");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().back(), "prims\t4\t1\treparent\t/World/B\t/World\t_2_fast_");
  EXPECT_TRUE(has("/World/_2_fast_"));

  model_->structure.reparentPrims({"/World/B_1"}, "/World/Set");
  EXPECT_EQ(model_->status.get(),
            "Can't add inside an instance \u2014 disable Instance on Set first");
  model_->structure.reparentPrims({"/World/_2_fast_"}, "/World/_2_fast_");
  EXPECT_EQ(model_->status.get(), "No editable prims to move");
}

TEST_F(AuthoringPipelineTest, SeveralRowsMoveAsOneBatchAndAProxyRefusesTheWholeBatch) {
  script({reply(true, 2, "moved")});
  model_->structure.reparentPrims({"/World/A", "/World/A/Leaf", "/World/Set"}, "/World/B");
  EXPECT_EQ(model_->status.get(), "Publishing move 2 prims");
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("prims\t0\t2\treparent\t/World/A\t/World/B\tA\treparent\t/"
                                      "World/Set\t/World/B\tSet"));
  EXPECT_TRUE(has("/World/B/A/Leaf"));
  EXPECT_TRUE(has("/World/B/Set/Leg"));
  EXPECT_THAT(model_->session.sceneSelection.get().paths,
              ElementsAre("/World/B/A", "/World/B/Set"));

  std::vector<PrimAtomicOperation> batch(3);
  for (PrimAtomicOperation& operation : batch)
    operation.kind = PrimOperationKind::deletePrim;
  batch[0].sourcePath = "/World/B/A";
  batch[1].sourcePath = "/World/B/Set/Leg";
  batch[2].sourcePath = "/World/B";
  model_->structure.submitPrimBatch(batch, "delete 3 prims", {});
  EXPECT_EQ(model_->status.get(), "Part of an instance \u2014 disable Instance on Set to edit it");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 1u);
  EXPECT_TRUE(has("/World/B/A")) << "no local change for a refused batch";
}

TEST_F(AuthoringPipelineTest, ABatchWhileTheQueueIsBusyGoesAsSingleOperations) {
  script({reply(true, 0, "saved"), reply(true, 0, "one"), reply(true, 0, "two")});
  queue(AtomicOperation{property("1")});
  model_->documents.selectPrims("/World/A", {"/World/A", "/World/B"});
  model_->structure.duplicatePrim("/World/A");
  EXPECT_EQ(model_->operations.state.pendingOperations.size(), 2u);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("usd-property\t0\tset\t/World/A\tsize\t1",
                                      "prims\t1\t1\tduplicate\t/World/A\t/World\tA_1",
                                      "prims\t2\t1\tduplicate\t/World/B\t/World\tB_1"));
  EXPECT_TRUE(has("/World/A_1/Leaf"));
  EXPECT_TRUE(has("/World/B_1"));
}

TEST_F(AuthoringPipelineTest, AFailedBatchIsRetriedOnAFreshHelperThenTakenBack) {
  script({reply(true, 0, "flipped"), "DIE", "DIE"});
  model_->structure.setPrimInstanceable("/World/B", true);
  model_->structure.deletePrim("/World/A");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 3u) << "the flip once, the queued delete twice on two helpers";
  EXPECT_TRUE(
      said("Live edit failed: The edit helper stopped before confirming the change (helper exit "
           "status 9): boom"));
  EXPECT_TRUE(has("/World/A")) << "the failed delete is taken back";
  EXPECT_FALSE(model_->overlay.state.optimisticDeletedPaths.contains("/World/A"));
}

}  // namespace
}  // namespace orvan::editor
