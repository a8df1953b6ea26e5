// The layer pane's commands inside the model, on virtual time, against the scripted fake helper:
// refusals in their words, the one-time move of root content, moves, mutes and the active layer.
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

using ::testing::EndsWith;
using ::testing::IsEmpty;

UsdLayerInfo layer(std::string identifier, bool root = false, bool writable = true,
                   bool muted = false, bool system = false) {
  UsdLayerInfo each;
  each.identifier = identifier;
  each.name = identifier.substr(0, identifier.find('.'));
  each.path = "/p/" + identifier;
  each.root = root;
  each.writable = writable;
  each.muted = muted;
  if (system)
    each.system = true;
  return each;
}

// Strongest first: the root, the workspace's edit layer, two plain layers, a muted one and a
// read-only one at the bottom.
std::vector<UsdLayerInfo> fullStack() {
  return {layer("scene.usda", true),
          layer("ws.usda", false, true, false, true),
          layer("a.usda"),
          layer("b.usda"),
          layer("m.usda", false, true, true),
          layer("ro.usda", false, false)};
}

StageInspection layeredStage(std::vector<UsdLayerInfo> layers, bool needsInitialization) {
  StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  UsdPrimDetail world;
  world.path = "/World";
  world.name = "World";
  world.parent = "/";
  stage.prims.push_back(world);
  UsdPrimNode node;
  node.path = "/World";
  node.name = "World";
  node.parent = "/";
  stage.rootPrims.push_back(node);
  stage.layers = std::move(layers);
  stage.requiresLayerStackInitialization = needsInitialization;
  return stage;
}

class LayerStackEditingTest : public ScriptedHelperModelTest {
 protected:
  void start(std::vector<UsdLayerInfo> layers, bool needsInitialization = false) {
    startModel(layeredStage(std::move(layers), needsInitialization));
    ASSERT_FALSE(model_->currentStage().prims.empty()) << model_->status.get();
  }
  // The stage the inspector gives from now on.
  void serve(std::vector<UsdLayerInfo> layers) {
    ScriptedHelperModelTest::serve(layeredStage(std::move(layers), false));
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
  std::vector<std::string> paneIdentifiers() const {
    std::vector<std::string> identifiers;
    for (const UsdLayerInfo& each : model_->layers.layerPaneLayers.get())
      identifiers.push_back(each.identifier);
    return identifiers;
  }
  std::string rememberedLayer() const {
    return preferences_.string(activeLayerPreferenceKey(model_->scope.get())).value_or("<none>");
  }
};

TEST_F(LayerStackEditingTest, EachRefusalInItsWordsAndNothingIsSent) {
  start(fullStack());
  const std::vector<UsdLayerInfo> stack = fullStack();
  const UsdLayerInfo &root = stack[0], &ws = stack[1], &b = stack[3], &muted = stack[4],
                     &readOnly = stack[5];
  LayerStackEditing& layers = model_->layers;
  struct Case {
    std::function<void()> act;
    std::string status;
  };
  const std::vector<Case> cases = {
      {[&] { layers.addLayer(" \n\t"); }, "Layer name required"},
      {[&] { layers.removeLayer(ws); }, "Workspace edit layer cannot be removed"},
      {[&] { layers.confirmRemoveLayer(root); }, "Root layer cannot be removed"},
      {[&] { layers.moveLayer(ws, "up"); }, "Workspace edit layer cannot be moved"},
      {[&] { layers.moveLayerToVisibleIndex(readOnly, 1); }, "Root layer cannot be moved"},
      {[&] { layers.setLayerMuted(ws, true); }, "Workspace edit layer is always enabled"},
      {[&] { layers.setLayerMuted(root, true); }, "Root layer is always enabled"},
      {[&] { layers.setLayerMuted(readOnly, true); }, "Root layer is always enabled"},
      {[&] { layers.confirmClearLayer(readOnly); }, "That layer cannot be cleared"},
      {[&] { layers.confirmClearLayer(ws); }, "That layer cannot be cleared"},
      {[&] { layers.mergeLayerDown(readOnly); }, "No lower layer to merge into"},
      {[&] { layers.confirmMergeLayerDown(b); }, "No editable layer below to merge into"},
      {[&] { layers.setActiveLayer(ws); }, "Workspace edit layer is hidden"},
      {[&] { layers.setActiveLayer(muted); }, "Enable that layer before editing it"},
      {[&] { layers.setActiveLayer(readOnly); }, "That layer is read-only"},
      {[&] { EXPECT_FALSE(layers.activateLayerForOverride("gone.usda")); },
       "Override layer not found"},
  };
  for (std::size_t index = 0; index < cases.size(); ++index) {
    model_->status.set("Ready");
    cases[index].act();
    EXPECT_EQ(model_->status.get(), cases[index].status) << "case " << index;
  }
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), IsEmpty());
  EXPECT_FALSE(layers.confirmation.get().has_value());
  EXPECT_TRUE(layers.activateLayerForOverride("")) << "no layer asked for: the edit may go";
}

TEST_F(LayerStackEditingTest, FirstUseMovesRootContentAfterConfirmationAndActivatesTheNewLayer) {
  start({layer("scene.usda", true)}, true);
  model_->layers.addLayer("  props ");
  ASSERT_TRUE(model_->layers.confirmation.get().has_value());
  const LayerConfirmation question = *model_->layers.confirmation.get();
  EXPECT_EQ(question.title, "Start Using Layers?");
  EXPECT_EQ(question.text,
            "This scene currently stores all of its content directly in scene.usda. To add "
            "\"props\", Velk must first move that content into a new child layer named base.usda. "
            "This is a one-time change; the new layer will be added above it.");
  EXPECT_EQ(question.confirmTitle, "Move Content and Add Layer");
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), IsEmpty()) << "nothing before the answer";

  model_->layers.cancel();
  scheduler_.runUntilQuiet();
  EXPECT_THAT(commands(), IsEmpty());

  model_->layers.addLayer("props");
  serve({layer("scene.usda", true), layer("props.usda"), layer("base.usda")});
  model_->layers.confirm();
  scheduler_.runUntilQuiet();
  ASSERT_EQ(commands().size(), 1u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op add props --move-root-content-to-base-layer"));
  EXPECT_FALSE(model_->layers.pendingAddedLayerActivationPreviousIdentifiers.has_value())
      << "the refreshed stage brought the layer";
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "props.usda");
  EXPECT_EQ(rememberedLayer(), "props.usda");
  EXPECT_EQ(paneIdentifiers(), (std::vector<std::string>{"scene.usda", "props.usda", "base.usda"}));
}

TEST_F(LayerStackEditingTest, AMoveToTheTopLandsJustBelowTheRoot) {
  start(fullStack());
  model_->layers.moveLayerToVisibleIndex(fullStack()[3], 0);
  EXPECT_EQ(paneIdentifiers(), (std::vector<std::string>{"scene.usda", "b.usda", "ws.usda",
                                                         "a.usda", "m.usda", "ro.usda"}));
  model_->layers.moveLayerToVisibleIndex(fullStack()[3], 1);  // where it stands now
  scheduler_.runUntilQuiet();
  ASSERT_EQ(commands().size(), 1u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op move b.usda index:1"));
}

TEST_F(LayerStackEditingTest, ARefusedLayerEditPutsThePaneBack) {
  start(fullStack());
  std::ofstream(folder_ / "journal.script")
      << R"({"accepted":false,"revision":0,"message":"locked"})" << '\n';
  model_->layers.removeLayer(fullStack()[2]);
  EXPECT_EQ(paneIdentifiers().size(), 5u) << "gone from the pane at once";
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->status.get(), "Live edit rejected: locked");
  EXPECT_EQ(paneIdentifiers().size(), 6u);
}

TEST_F(LayerStackEditingTest, AHelperThatDiesNamesItsExitStatusAndTheEndOfWhatItSaid) {
  start(fullStack());
  std::ofstream(folder_ / "journal.script") << "DIE\n";
  model_->layers.moveLayer(fullStack()[3], "up");
  scheduler_.runUntilQuiet();
  const std::string status = model_->status.get();
  EXPECT_THAT(status, ::testing::StartsWith("Live edit failed: helper exit status 9: "));
  EXPECT_THAT(status, EndsWith("..... cannot reach the server"));
  EXPECT_EQ(status.find("early"), std::string::npos) << "only the last 600 characters";
  EXPECT_EQ(status.size(), std::string("Live edit failed: helper exit status 9: ").size() + 600);
  EXPECT_EQ(paneIdentifiers().size(), 6u);
}

TEST_F(LayerStackEditingTest, TheActiveLayerIsRememberedAndMutingTheLastEditableOneClearsIt) {
  start({layer("scene.usda", true, false), layer("a.usda"), layer("b.usda"),
         layer("ro.usda", false, false)});
  model_->layers.setActiveLayer(layer("b.usda"));
  EXPECT_EQ(model_->status.get(), "Editing b");
  model_->layers.setActiveLayer(layer("a.usda"));
  EXPECT_EQ(model_->status.get(), "Editing a");
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "a.usda");
  EXPECT_EQ(rememberedLayer(), "a.usda");
  serve({layer("scene.usda", true, false), layer("a.usda"), layer("b.usda", false, true, true),
         layer("ro.usda", false, false)});
  model_->layers.setLayerMuted(layer("b.usda"), true);
  scheduler_.runUntilQuiet();

  model_->layers.setLayerMuted(layer("a.usda"), true);
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "");
  EXPECT_EQ(rememberedLayer(), "<none>");
  scheduler_.runUntilQuiet();
  ASSERT_EQ(commands().size(), 2u);
  EXPECT_THAT(commands()[1], EndsWith("--layer-op mute a.usda true"));
  std::string lastLaunch;
  bool launchedForA = false;
  std::istringstream journal(testing::fileText(journal_));
  for (std::string line; std::getline(journal, line);) {
    if (line.rfind("launch", 0) != 0)
      continue;
    lastLaunch = line;
    launchedForA = launchedForA || line.find("--active-layer a.usda") != std::string::npos;
  }
  EXPECT_TRUE(launchedForA) << "choosing the layer warmed a helper for it";
  ASSERT_FALSE(lastLaunch.empty()) << "a new long-lived helper was warmed";
  EXPECT_EQ(lastLaunch.find("--active-layer"), std::string::npos)
      << lastLaunch << "the helper runs without a layer once none is editable";
}

// With nothing chosen, the layer that receives edits is the first editable one below the root;
// a remembered choice comes first; a stack of the root alone edits the root.
TEST_F(LayerStackEditingTest, WithoutAChoiceTheFirstEditableSublayerReceivesEdits) {
  start({layer("scene.usda", true), layer("ws.usda", false, true, false, true),
         layer("m.usda", false, true, true), layer("a.usda"), layer("b.usda")});
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "a.usda");
  EXPECT_EQ(rememberedLayer(), "a.usda");

  model_->layers.setActiveLayer(layer("b.usda"));
  model_->scope.current.update([](SharedClientScope& scope) { scope.activeLayer.clear(); });
  serve({layer("scene.usda", true), layer("a.usda"), layer("b.usda")});
  model_->stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "b.usda") << "the remembered choice";

  serve({layer("scene.usda", true)});
  model_->stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "scene.usda");
  EXPECT_EQ(rememberedLayer(), "scene.usda");
}

}  // namespace
}  // namespace orvan::editor
