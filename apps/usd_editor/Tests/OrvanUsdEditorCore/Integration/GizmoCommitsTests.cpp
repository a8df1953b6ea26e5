// Transform drags of the viewport's gizmo on their way to the server, with virtual time, against
// the scripted fake edit helper running as a real process on real pipes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

#include "ScriptedHelperModelTest.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;
using namespace std::chrono_literals;

// /World with A, B, and Set (an instance root) with its proxy Leg.
StageInspection gizmoStage() {
  StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  UsdPrimNode world = testing::makePrimNode("/World");
  UsdPrimNode set = testing::makePrimNode("/World/Set");
  set.children.push_back(testing::makePrimNode("/World/Set/Leg"));
  world.children = {testing::makePrimNode("/World/A"), testing::makePrimNode("/World/B"), set};
  stage.rootPrims.push_back(world);
  testing::addPrimDetail(stage, "/World");
  testing::addPrimDetail(stage, "/World/A");
  testing::addPrimDetail(stage, "/World/B");
  testing::addPrimDetail(stage, "/World/Set").instanceable = true;
  testing::addPrimDetail(stage, "/World/Set/Leg").instanceProxy = true;
  return stage;
}

class GizmoCommitsTest : public ScriptedHelperModelTest {
 protected:
  void SetUp() override {
    startModel(gizmoStage());
    ASSERT_EQ(model_->currentStage().prims.size(), 5u) << model_->status.get();
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
  void script(std::initializer_list<std::string> answers) {
    std::ofstream out(folder_ / "journal.script", std::ios::app);
    for (const std::string& answer : answers)
      out << answer << '\n';
  }
  static std::string reply(bool accepted, std::uint64_t revision, const std::string& message) {
    return std::string("{\"accepted\":") + (accepted ? "true" : "false") +
           ",\"revision\":" + std::to_string(revision) + ",\"message\":\"" + message + "\"}";
  }
  std::vector<std::string> commands() const {
    std::vector<std::string> lines;
    std::istringstream in(testing::fileText(journal_));
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("launch", 0) != 0 && line != "ping" && line != "quit")
        lines.push_back(line);
    }
    return lines;
  }

  void drag(const std::string& path, const std::string& property, std::vector<double> values,
            bool final = false, bool duplicate = false, const std::string& session = "") {
    model_->viewportGizmo.handleViewportTransformCommit(path, property, values, final, duplicate,
                                                        session);
  }
  static std::string translation(const std::string& path, const std::string& value,
                                 std::uint64_t revision = 0) {
    return "components\t" + std::to_string(revision) + "\t1\tset\t" + path +
           "\tTransform\ttranslation\t" + value;
  }

  std::vector<std::string> statuses_;
  Subscription statusWatch_;
};

TEST_F(GizmoCommitsTest, ADragCommitsAPauseAfterItsLastLineAndItsEndAtOnce) {
  for (int step = 1; step <= 5; ++step) {
    drag("/World/A", "translation", {double(step), 0.5, 0});
    scheduler_.advanceBy(50ms);
    scheduler_.runUntilQuiet();
  }
  EXPECT_TRUE(commands().empty()) << "each line pushes the commit further out";
  scheduler_.advanceBy(99ms);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(commands().empty());
  scheduler_.advanceBy(1ms);
  EXPECT_EQ(model_->status.get(), "Publishing live transform");
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre(translation("/World/A", "5,0.5,0")))
      << "only the newest value of the drag goes";
  EXPECT_EQ(model_->revision.get(), 1u);
  EXPECT_EQ(model_->status.get(), "ok");

  drag("/World/A", "translation", {6, 0.1234567, 1e-7}, /*final=*/true);
  scheduler_.runUntilIdle();
  EXPECT_EQ(model_->status.get(), "Publishing transform") << "the final line does not wait";
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().back(), translation("/World/A", "6,0.123457,1e-07", 1));

  // What the inspector shows meanwhile: the preview store and the draft hold the newest text.
  EXPECT_EQ(model_->propertyDrafts.livePreviews.values.get().at("/World/A|Transform|translation"),
            "6,0.123457,1e-07");
  EXPECT_EQ(model_->propertyDrafts.drafts.get().at("/World/A").at("Transform|translation"),
            "6,0.123457,1e-07");
}

TEST_F(GizmoCommitsTest, WhileABatchIsWithTheHelperOnlyTheNewestValueOfEachPropertyWaits) {
  script({reply(true, 3, ""), reply(true, 4, "moved")});
  drag("/World/A", "translation", {1, 1, 1}, true);
  scheduler_.runUntilIdle();
  ASSERT_TRUE(model_->viewportGizmo.viewportGizmoCommitInFlight);
  drag("/World/A", "translation", {2, 2, 2});
  drag("/World/A", "rotation", {0, 90, 0});
  drag("/World/A", "translation", {3, 3, 3});
  scheduler_.advanceBy(150ms);
  EXPECT_EQ(model_->status.get(), "Queued transform");
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(said("Updated")) << "an accepted reply without a message";
  scheduler_.advanceBy(150ms);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(),
              ElementsAre(translation("/World/A", "1,1,1"),
                          "components\t3\t2\tset\t/World/A\tTransform\trotation\t0,90,0\tset\t/"
                          "World/A\tTransform\ttranslation\t3,3,3"))
      << "one line for every property of the drag, in key order";
  EXPECT_EQ(model_->status.get(), "moved");
  EXPECT_FALSE(model_->viewportGizmo.hasPendingChanges());
}

TEST_F(GizmoCommitsTest, AFinalCommitIsTriedThreeTimesAndALiveOneOnce) {
  script({"not json", "not json", "not json"});
  drag("/World/A", "scale", {2, 2, 2}, true);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "Retrying transform");
  EXPECT_EQ(commands().size(), 1u);
  scheduler_.advanceBy(79ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 1u) << "the first retry waits 0.08 s";
  scheduler_.advanceBy(1ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 2u);
  scheduler_.advanceBy(159ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 2u) << "the second 0.16 s";
  scheduler_.advanceBy(1ms);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 3u);
  EXPECT_THAT(model_->status.get(), StartsWith("Gizmo edit failed: "));
  EXPECT_FALSE(model_->viewportGizmo.viewportGizmoCommitInFlight);
  const std::uint64_t generation = model_->stageRefresher.refreshGeneration;
  scheduler_.advanceBy(250ms);
  scheduler_.runUntilQuiet();
  EXPECT_GT(model_->stageRefresher.refreshGeneration, generation)
      << "after a final value the stage is fetched again";

  script({"not json"});
  drag("/World/A", "scale", {3, 3, 3});
  scheduler_.advanceBy(150ms);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(model_->status.get(), StartsWith("Gizmo edit failed: "));
  scheduler_.advanceBy(2s);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 4u) << "a live value is overtaken by the next one, never repeated";
}

TEST_F(GizmoCommitsTest, AFinalRefusalIsRetriedAtTheRevisionItTaughtUnlessNothingWouldChange) {
  script({reply(false, 7, "stale base"), reply(true, 0, "saved")});
  drag("/World/A", "translation", {1, 2, 3}, true);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->revision.get(), 7u);
  scheduler_.advanceBy(80ms);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre(translation("/World/A", "1,2,3", 0),
                                      translation("/World/A", "1,2,3", 7)));
  EXPECT_EQ(model_->revision.get(), 8u);
  EXPECT_EQ(model_->status.get(), "saved");

  statuses_.clear();
  script({reply(false, 0, "No valid authored change for /World/A")});
  drag("/World/A", "translation", {1, 2, 3}, true);
  scheduler_.runUntilQuiet();
  scheduler_.advanceBy(1s);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 3u);
  EXPECT_TRUE(said("Gizmo edit rejected: No valid authored change for /World/A"));

  script({reply(false, 9, "locked")});
  drag("/World/A", "translation", {4, 4, 4});
  scheduler_.advanceBy(150ms);
  scheduler_.runUntilQuiet();
  scheduler_.advanceBy(1s);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 4u) << "a live refusal is not retried";
  EXPECT_EQ(model_->status.get(), "Gizmo edit rejected: locked");
  EXPECT_EQ(model_->revision.get(), 9u);
}

TEST_F(GizmoCommitsTest, TheGizmoAndTheQueueWaitForEachOther) {
  const UsdPropertyAtomicOperation size{.kind = UsdPropertyOperationKind::set,
                                        .primPath = "/World/B",
                                        .propertyName = "size",
                                        .value = "2"};
  model_->operations.queue(AtomicOperation{size});
  model_->operations.submitNextOperation();
  ASSERT_TRUE(model_->operations.state.submitInFlight);
  drag("/World/A", "translation", {1, 1, 1}, true);
  scheduler_.runUntilIdle();
  EXPECT_EQ(model_->status.get(), "Queued transform");
  EXPECT_TRUE(model_->operations.hasPendingAuthoringChanges());
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("usd-property\t0\tset\t/World/B\tsize\t2",
                                      translation("/World/A", "1,1,1", 1)))
      << "the queue hands over when it runs dry";

  drag("/World/A", "translation", {2, 2, 2}, true);
  scheduler_.runUntilIdle();
  ASSERT_TRUE(model_->viewportGizmo.viewportGizmoCommitInFlight);
  model_->operations.queue(AtomicOperation{size});
  model_->operations.submitNextOperation();
  EXPECT_EQ(model_->status.get(), "Queued live edit");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 4u) << "the gizmo hands back when its batch ends";
  EXPECT_EQ(commands()[2], translation("/World/A", "2,2,2", 2));
  EXPECT_EQ(commands()[3], "usd-property\t3\tset\t/World/B\tsize\t2");

  // Queued edits waiting when the gizmo's timer fires go first.
  model_->scope.seamlessWorkspaceTransitionInFlight = true;
  model_->operations.queue(AtomicOperation{size});
  model_->operations.submitNextOperation();
  drag("/World/A", "translation", {3, 3, 3}, true);
  scheduler_.runUntilIdle();
  EXPECT_EQ(model_->status.get(), "Saving transform when the destination is ready");
  model_->scope.seamlessWorkspaceTransitionInFlight = false;
  model_->viewportGizmo.flushViewportGizmoCommitIfReady();
  EXPECT_TRUE(said("Queued transform"));
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands()[4], "usd-property\t4\tset\t/World/B\tsize\t2");
  EXPECT_EQ(commands()[5], translation("/World/A", "3,3,3", 5));
}

TEST_F(GizmoCommitsTest, AnAltDragMovesOneNewCopyPerPreviewSession) {
  drag("/World/B", "translation", {1, 0, 0}, false, true, "drag-1");
  EXPECT_EQ(model_->status.get(), "Publishing duplicate /World/B");
  drag("/World/B", "translation", {2, 0, 0}, false, true, "drag-1");
  drag("/World/B", "translation", {5, 0, 0}, false, true, "drag-2");
  drag("/World/B", "translation", {3, 0, 0}, true, true, "drag-1");
  EXPECT_THAT(model_->viewportGizmo.viewportDuplicatePathsByPreviewSession,
              ::testing::UnorderedElementsAre(::testing::Pair("drag-1", "/World/B_1"),
                                              ::testing::Pair("drag-2", "/World/B_2")))
      << "a copy still on its way keeps its name taken";
  scheduler_.runUntilQuiet();
  scheduler_.advanceBy(150ms);
  scheduler_.runUntilQuiet();
  const std::vector<std::string> sent = commands();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0], "prims\t0\t1\tduplicate\t/World/B\t/World\tB_1");
  EXPECT_EQ(sent[1], "prims\t1\t1\tduplicate\t/World/B\t/World\tB_2");
  EXPECT_EQ(sent[2],
            "components\t2\t2\tset\t/World/B_1\tTransform\ttranslation\t3,0,0\tset\t/World/"
            "B_2\tTransform\ttranslation\t5,0,0");
  EXPECT_TRUE(model_->stage.get()->prim("/World/B_1"));
  EXPECT_TRUE(model_->stage.get()->prim("/World/B"));

  drag("/World/Set/Leg", "translation", {1, 1, 1}, true, true, "drag-3");
  EXPECT_EQ(model_->status.get(), "Part of an instance \u2014 disable Instance on Set to edit it");
  drag("/World/Missing", "translation", {1, 1, 1}, true, true, "drag-4");
  EXPECT_EQ(model_->status.get(), "Cannot duplicate /World/Missing");
  EXPECT_FALSE(model_->viewportGizmo.viewportDuplicatePathsByPreviewSession.contains("drag-4"));
}

TEST_F(GizmoCommitsTest, TheMapOfDuplicatesStartsOverAt129Sessions) {
  auto& sessions = model_->viewportGizmo.viewportDuplicatePathsByPreviewSession;
  for (int session = 0; session < 128; ++session)
    drag("/World/A", "rotation", {0, 1, 0}, false, true, "s" + std::to_string(session));
  ASSERT_EQ(sessions.size(), 128u);
  EXPECT_EQ(sessions.at("s127"), "/World/A_128");
  drag("/World/A", "rotation", {0, 1, 0}, false, true, "s128");
  EXPECT_THAT(sessions, ElementsAre(::testing::Pair("s128", "/World/A_129")));
  drag("/World/A", "rotation", {0, 1, 0}, false, true, "s0");
  EXPECT_EQ(sessions.at("s0"), "/World/A_130") << "a forgotten session makes a new copy";
}

TEST_F(GizmoCommitsTest, LinesThatCannotBeAValueAreDropped) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  drag("/World/A", "translation", {nan, 0, 0}, true);
  drag("/World/A", "translation", {0, infinity, 0}, true);
  drag("/World/A", "translation", {1, 2}, true);
  drag("", "translation", {1, 2, 3}, true);
  drag("/World/A", "", {1, 2, 3}, true);
  bool preview = true;
  model_->operations.hooks.historyPreviewOpen = [&] { return preview; };
  drag("/World/A", "translation", {1, 2, 3}, true);
  preview = false;
  drag("/World/Set/Leg", "translation", {1, 2, 3}, true);
  EXPECT_EQ(model_->status.get(), "Part of an instance \u2014 disable Instance on Set to edit it");
  scheduler_.runUntilQuiet();
  scheduler_.advanceBy(1s);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(commands().empty());
  EXPECT_FALSE(model_->viewportGizmo.lastViewportTransformActivity.has_value());

  drag("/World/A", "translation", {1, 2, 3, 4}, true);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre(translation("/World/A", "1,2,3")))
      << "extra values are ignored";
}

}  // namespace
}  // namespace orvan::editor
