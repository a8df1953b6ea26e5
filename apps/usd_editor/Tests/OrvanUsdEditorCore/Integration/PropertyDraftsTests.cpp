// Inspector drafts and component commands inside the model, on virtual time, against the scripted
// fake edit helper: the debounce, coalescing, previews, refusals, refreshes and the fan-out.
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
#include "Support/TemporaryFolder.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::editor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

ComponentProperty property(std::string name, std::string kind, std::string value) {
  ComponentProperty each;
  each.name = std::move(name);
  each.kind = std::move(kind);
  each.value = std::move(value);
  return each;
}

UsdComponent renderShape(std::string color) {
  UsdComponent shape;
  shape.type = "RenderShape";
  shape.properties = {property("color", "vector3", std::move(color)),
                      property("dimensions", "vector3", "1,1,1"),
                      property("radius", "number", "0.5")};
  return shape;
}

// /World with shapes A and B, a plain C, and Set, an instance root whose proxy Leg is a shape.
StageInspection draftStage() {
  StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  UsdPrimNode world;
  world.path = "/World";
  world.name = "World";
  world.parent = "/";
  auto add = [&](const std::string& path, const std::string& parent) {
    UsdPrimDetail each;
    each.path = path;
    each.name = path.substr(path.rfind('/') + 1);
    each.parent = parent;
    each.entityPath = path;
    stage.prims.push_back(each);
    if (parent == "/World") {
      UsdPrimNode node;
      node.path = path;
      node.name = each.name;
      node.parent = parent;
      world.children.push_back(node);
    }
    return &stage.prims.back();
  };
  UsdAttribute strength;
  strength.name = "orvan:ambientOcclusionStrength";
  strength.type = "float";
  strength.value = "0.75";
  add("/World", "/")->attributes = {strength};
  add("/World/A", "/World")->components = {renderShape("1,0,0")};
  add("/World/B", "/World")->components = {renderShape("0,1,0")};
  add("/World/C", "/World");
  add("/World/Set", "/World")->instanceable = true;
  UsdPrimDetail* leg = add("/World/Set/Leg", "/World/Set");
  leg->instanceProxy = true;
  leg->components = {renderShape("0,0,1")};
  UsdPrimNode legNode;
  legNode.path = "/World/Set/Leg";
  legNode.name = "Leg";
  legNode.parent = "/World/Set";
  world.children.back().children.push_back(legNode);
  stage.rootPrims.push_back(world);
  UsdComponent light;
  light.type = "Light";
  light.properties = {property("intensity", "number", "1")};
  stage.catalog = {light, renderShape("1,1,1")};
  return stage;
}

class PropertyDraftsTest : public ScriptedHelperModelTest {
 protected:
  void SetUp() override {
    startModel(draftStage());
    ASSERT_TRUE(model_->currentStage().prims.size() == 6u) << model_->status.get();
    model_->revision.set(0);
    previewWatch_ = model_->session.viewport.subscribe([this](const ViewportControlsState& state) {
      previewTimes_.push_back(scheduler_.now());
      previews_.push_back(state.controls.propertyPreviews);
    });
  }
  void select(std::vector<std::string> paths) {
    model_->documents.selectPrims(paths.front(), paths);
    scheduler_.runUntilQuiet();
  }
  void script(std::initializer_list<std::string> answers) {
    std::ofstream out(folder_ / "journal.script", std::ios::app);
    for (const std::string& answer : answers)
      out << answer << '\n';
  }
  static std::string refusal(const std::string& message) {
    return R"({"accepted":false,"revision":0,"message":")" + message + "\"}";
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
  // Moves virtual time on in steps, letting helper replies land between them.
  void wait(Duration total, Duration step = 1ms) {
    for (Duration done{}; done < total; done += step) {
      scheduler_.advanceBy(step);
      scheduler_.runUntilQuiet();
    }
  }
  std::string shown(const std::string& name) const {
    const UsdComponent shape = renderShape("");
    for (const ComponentProperty& each : shape.properties) {
      if (each.name == name)
        return model_->propertyDrafts.draftValue(shape, each);
    }
    return "?";
  }

  const UsdComponent shape_ = renderShape("1,0,0");
  const ComponentProperty& color_ = shape_.properties[0];
  const ComponentProperty& dimensions_ = shape_.properties[1];
  const ComponentProperty& radius_ = shape_.properties[2];

  std::vector<TimePoint> previewTimes_;
  std::vector<std::vector<EditorViewportPropertyPreview>> previews_;
  Subscription previewWatch_;
};

TEST_F(PropertyDraftsTest, ADragOfAHundredUpdatesEndsAsOneOperationWithRateLimitedPreviews) {
  select({"/World/A"});
  for (int step = 0; step < 100; ++step) {
    model_->propertyDrafts.updateDraft(shape_, dimensions_, std::to_string(step) + ", 2, 3", true);
    EXPECT_EQ(shown("dimensions"), std::to_string(step) + ", 2, 3") << "the field shows the text";
    wait(5ms);
  }
  EXPECT_THAT(commands(), IsEmpty()) << "no pause of 40 ms yet";
  EXPECT_TRUE(model_->propertyDrafts.hasDeferredCommits());
  EXPECT_EQ(model_->propertyDrafts.deferredPropertyCommitTasks.size(), 1u) << "one timer per key";
  wait(50ms);
  EXPECT_THAT(commands(),
              ElementsAre("component\t0\tset\t/World/A\tRenderShape\tdimensions\t99,2,3"));
  EXPECT_FALSE(model_->propertyDrafts.hasDeferredCommits());

  ASSERT_GE(previewTimes_.size(), 40u) << "the viewport follows the drag";
  for (std::size_t index = 1; index < previewTimes_.size(); ++index)
    EXPECT_GE(previewTimes_[index] - previewTimes_[index - 1], std::chrono::nanoseconds(8333333))
        << "1/120 s";
  ASSERT_EQ(previews_.back().size(), 1u);
  EXPECT_EQ(previews_.back()[0].value, "99,2,3");
  EXPECT_FALSE(previews_.back()[0].clear);
}

TEST_F(PropertyDraftsTest, APauseCommitsAndAPropertyTheViewportCannotShowIsNotPreviewed) {
  select({"/World/A"});
  model_->propertyDrafts.updateDraft(shape_, radius_, "1", true);
  wait(45ms);
  model_->propertyDrafts.updateDraft(shape_, radius_, "2", true);
  wait(20ms);
  model_->propertyDrafts.updateDraft(shape_, radius_, "3", true);
  wait(45ms);
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t1",
                                      "component\t1\tset\t/World/A\tRenderShape\tradius\t3"));
  EXPECT_THAT(previewTimes_, IsEmpty());
}

TEST_F(PropertyDraftsTest, AnInvalidValueStaysAsADraftAndNeverReachesTheServer) {
  select({"/World/A"});
  for (const char* typed : {"1,2", "1,a,3", "  "}) {
    model_->propertyDrafts.updateDraft(shape_, dimensions_, typed, true);
    EXPECT_EQ(model_->status.get(), "Waiting for valid vector3 value") << typed;
    EXPECT_EQ(shown("dimensions"), std::string(typed));
  }
  model_->propertyDrafts.updateDraft(shape_, radius_, "12abc", true);
  EXPECT_EQ(model_->status.get(), "Waiting for valid number value");
  model_->propertyDrafts.commitRetainedNumericControl(shape_, radius_, "x");
  EXPECT_EQ(model_->status.get(), "Waiting for valid number value");
  EXPECT_EQ(shown("radius"), "x");
  wait(100ms, 10ms);
  EXPECT_THAT(commands(), IsEmpty());
  EXPECT_THAT(previewTimes_, IsEmpty());
  EXPECT_EQ(model_->propertyDrafts.drafts.get().at("/World/A").at("RenderShape|dimensions"), "  ");

  model_->propertyDrafts.updateDraft(shape_, dimensions_, "1e3,0.1234567,3", false);
  EXPECT_EQ(model_->status.get(), "Previewing dimensions");
  wait(100ms, 10ms);
  EXPECT_THAT(commands(), IsEmpty()) << "a preview alone is never committed";
  ASSERT_FALSE(previews_.empty());
  EXPECT_EQ(previews_.back()[0].value, "1000,0.123457,3");
}

TEST_F(PropertyDraftsTest, AMultiSelectionSendsOneOperationPerEntityAndLastValueWins) {
  select({"/World/A", "/World/B", "/World/C"});
  for (const char* value : {"0.1", "0.2", "0.3", "0.4", "0.5"}) {
    model_->propertyDrafts.updateDraft(shape_, radius_, value, true);
    wait(5ms);
  }
  ASSERT_EQ(model_->propertyDrafts.deferredPropertyCommitTasks.size(), 1u);
  EXPECT_EQ(model_->propertyDrafts.deferredPropertyCommitTasks.begin()->first,
            "RenderShape|radius|/World/A|/World/B")
      << "C has no shape";
  wait(45ms);
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t0.5",
                                      "component\t1\tset\t/World/B\tRenderShape\tradius\t0.5"));
}

TEST_F(PropertyDraftsTest, ARetainedControlCommitsAtOnceAndAColourIsAlwaysDebounced) {
  select({"/World/A"});
  model_->propertyDrafts.updateDraft(shape_, radius_, "4", true);
  model_->propertyDrafts.commitRetainedNumericControl(shape_, radius_, " 7 ");
  EXPECT_FALSE(model_->propertyDrafts.hasDeferredCommits()) << "the drag's timer is cancelled";
  EXPECT_EQ(model_->operations.state.inFlightOperation.has_value(), true);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t7"));

  model_->propertyDrafts.scheduleColorCommit(shape_, color_, {"/World/A"}, "0.5, 0.5, 0.5");
  scheduler_.runUntilQuiet();
  wait(39ms);
  EXPECT_EQ(commands().size(), 1u) << "a colour waits for its pause";
  wait(2ms);
  EXPECT_EQ(commands().back(), "component\t1\tset\t/World/A\tRenderShape\tcolor\t0.5,0.5,0.5");
}

TEST_F(PropertyDraftsTest, ADraftSurvivesARefreshWhileItsCommitWaits) {
  select({"/World/A"});
  model_->propertyDrafts.updateDraft(shape_, color_, "0.2,0.2,0.2", true);
  // A full stage arrives before the pause ends and says the old colour.
  model_->stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(shown("color"), "0.2,0.2,0.2") << "the queued value wins over the stage";
  wait(45ms);
  EXPECT_THAT(commands(),
              ElementsAre("component\t0\tset\t/World/A\tRenderShape\tcolor\t0.2,0.2,0.2"));

  // With nothing on its way, a refresh that drops drafts shows the stage again.
  model_->stageRefresher.refresh({.preserveQueue = true, .preserveDrafts = false});
  scheduler_.runUntilQuiet();
  EXPECT_EQ(shown("color"), "1,0,0");
}

TEST_F(PropertyDraftsTest, ARefusedCommitGivesWayToTheServersValueAndClearsThePreview) {
  select({"/World/A"});
  script({refusal("locked")});
  model_->propertyDrafts.updateDraft(shape_, color_, "0,0,0", true);
  wait(45ms);
  EXPECT_EQ(model_->status.get(), "Live edit rejected: locked");
  EXPECT_EQ(shown("color"), "1,0,0");
  ASSERT_FALSE(previews_.empty());
  ASSERT_EQ(previews_.back().size(), 1u);
  EXPECT_TRUE(previews_.back()[0].clear) << "the viewport drops the unsaved look";
  EXPECT_EQ(previews_.back()[0].propertyName, "color");
}

TEST_F(PropertyDraftsTest, AnInstanceProxyIsRefusedAndNothingIsDrafted) {
  select({"/World/Set/Leg"});
  model_->propertyDrafts.updateDraft(shape_, color_, "0,0,0", true);
  EXPECT_THAT(model_->status.get(), ::testing::HasSubstr("instance"));
  EXPECT_TRUE(model_->propertyDrafts.drafts.get().empty());
  wait(45ms);
  EXPECT_THAT(commands(), IsEmpty());
}

TEST_F(PropertyDraftsTest, WorldSettingsAndResets) {
  select({"/World/A"});
  EXPECT_EQ(model_->propertyDrafts.worldColorValue("backgroundColor"), "0.03,0.035,0.045");
  EXPECT_EQ(model_->propertyDrafts.worldNumberValue("ambientOcclusionStrength", 1), "0.75");
  EXPECT_EQ(model_->propertyDrafts.worldNumberValue("exposure", 1.5), "1.5");
  model_->propertyDrafts.updateWorldAttribute("backgroundColor", "0.1,0.2,0.3");
  EXPECT_EQ(model_->propertyDrafts.worldColorValue("backgroundColor"), "0.1,0.2,0.3");
  scheduler_.runUntilQuiet();
  model_->propertyDrafts.commitRetainedWorldNumber("ambientOcclusionStrength", 7, 0, 2);
  scheduler_.runUntilQuiet();
  model_->propertyDrafts.resetComponentOverride(shape_, color_);
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(),
              ElementsAre("usd-property\t0\tset\t/World\torvan:backgroundColor\t0.1,0.2,0.3",
                          "usd-property\t1\tset\t/World\torvan:ambientOcclusionStrength\t2",
                          "component\t2\treset\t/World/A\tRenderShape\tcolor"));
  EXPECT_EQ(model_->propertyDrafts.worldNumberValue("ambientOcclusionStrength", 1), "2");
}

TEST_F(PropertyDraftsTest, ComponentCommandsFanOutOverTheSelectionAndShowAtOnce) {
  select({"/World/A", "/World/B", "/World/C"});
  model_->components.addComponent("RenderShape");
  const UsdPrimDetail* c = model_->stage.get()->prim("/World/C");
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(c->components.size(), 1u) << "the local stage shows it before any reply";
  EXPECT_EQ(c->components[0].properties.size(), 3u) << "from the catalogue";
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("component\t0\tadd\t/World/C\tRenderShape"))
      << "two of three held it already";

  select({"/World/A", "/World/B"});
  model_->components.setEnabled("RenderShape", false);
  EXPECT_FALSE(model_->stage.get()->prim("/World/B")->components[0].enabled);
  model_->components.addComponent("Light");
  scheduler_.runUntilQuiet();
  model_->components.reorderComponent("Light", 0);
  model_->components.reorderComponent("RenderShape", 0);
  EXPECT_EQ(model_->operations.state.pendingOperations.size() +
                model_->operations.state.inFlightOperation.has_value(),
            2u)
      << "the order shows only with the next stage: a move to where it stands is dropped";
  scheduler_.runUntilQuiet();
  model_->components.removeComponent("Light");
  EXPECT_EQ(model_->stage.get()->prim("/World/A")->components.size(), 1u);
  scheduler_.runUntilQuiet();
  const std::vector<std::string> sent = commands();
  EXPECT_THAT(
      std::vector<std::string>(sent.begin() + 1, sent.end()),
      ElementsAre("component\t1\tenable\t/World/A\tRenderShape\tfalse",
                  "component\t2\tenable\t/World/B\tRenderShape\tfalse",
                  "component\t3\tadd\t/World/A\tLight", "component\t4\tadd\t/World/B\tLight",
                  "component\t5\treorder\t/World/A\tLight\tLight,RenderShape",
                  "component\t6\treorder\t/World/B\tLight\tLight,RenderShape",
                  "component\t7\tremove\t/World/A\tLight",
                  "component\t8\tremove\t/World/B\tLight"));
}

// A stage that arrives while a component command is on its way still shows the command; a reset
// takes the override mark off at once; a refused command goes and the server's stage shows.
TEST_F(PropertyDraftsTest, ComponentCommandsOutliveStagesThatDoNotHoldThemYet) {
  select({"/World/C"});
  const auto lightOnC = [&] {
    const UsdPrimDetail* c = model_->stage.get()->prim("/World/C");
    return c && !c->components.empty() && c->components[0].type == "Light";
  };
  model_->stageRefresher.refresh();  // its answer comes before the helper's
  model_->components.addComponent("Light");
  EXPECT_TRUE(lightOnC());
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kNo);
  scheduler_.runUntilQuiet();
  EXPECT_TRUE(lightOnC()) << "the refreshed stage did not hold it yet, the overlay did";
  EXPECT_EQ(commands().size(), 1u);

  StageInspection marked = draftStage();
  marked.prims[1].components[0].properties[0].overridden = true;
  marked.prims[1].components[0].properties[0].overrideLayer = "top.usda";
  serve(marked);
  model_->stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  ASSERT_TRUE(model_->stage.get()->prim("/World/A")->components[0].properties[0].overridden);
  select({"/World/A"});
  model_->propertyDrafts.resetComponentOverride(shape_, color_);
  EXPECT_FALSE(model_->stage.get()->prim("/World/A")->components[0].properties[0].overridden)
      << "the mark goes before the reply";
  scheduler_.runUntilQuiet();

  const std::string accepted = R"({"accepted":true,"revision":0,"message":"ok"})";
  script({accepted, accepted, refusal("locked")});  // the add and the reset, then this one
  select({"/World/B"});
  model_->components.addComponent("Light");
  EXPECT_EQ(model_->stage.get()->prim("/World/B")->components.size(), 2u);
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->stage.get()->prim("/World/B")->components.size(), 1u)
      << "refused: the server's stage without it";
  EXPECT_FALSE(model_->overlay.state.holdsEdits());
}

TEST_F(PropertyDraftsTest, CopyAndPasteAComponentAndTheRefusals) {
  select({"/World/A", "/World/C", "/World/Set/Leg"});
  const UsdPrimDetail* a = model_->stage.get()->prim("/World/A");
  const UsdComponent shape = a->components[0];
  model_->components.copyComponent(shape);
  EXPECT_EQ(model_->status.get(), "Copied RenderShape; select another object to paste it");
  model_->components.pasteComponentSnapshot(shape, {});
  EXPECT_EQ(model_->status.get(), "Select an object to paste the component");

  model_->components.duplicateComponentToSelection(shape, "/World/A");
  EXPECT_EQ(model_->status.get(), "Copied RenderShape to 1 objects") << "the proxy is skipped";
  EXPECT_EQ(model_->stage.get()->prim("/World/C")->components.at(0).properties.at(0).value,
            "1,0,0");
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), ElementsAre("component\t0\tadd\t/World/C\tRenderShape",
                                      "component\t1\tenable\t/World/C\tRenderShape\ttrue",
                                      "component\t2\tset\t/World/C\tRenderShape\tcolor\t1,0,0",
                                      "component\t3\tset\t/World/C\tRenderShape\tdimensions\t1,1,1",
                                      "component\t4\tset\t/World/C\tRenderShape\tradius\t0.5"));

  select({"/World/Set/Leg"});
  model_->components.addComponent("Light");
  EXPECT_THAT(model_->status.get(), ::testing::HasSubstr("instance"));
  model_->components.applyUiLayoutPreset(UiLayoutPreset::fill);
  EXPECT_EQ(model_->status.get(), "Select an object with UiLayout");
  scheduler_.runUntilQuiet();
  EXPECT_EQ(commands().size(), 5u) << "nothing queued after a refusal";
}

}  // namespace
}  // namespace orvan::editor
