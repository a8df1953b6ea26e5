// The window's menu bar over a real model: each item changes the store it should, checkable items
// follow their store whoever changes it, and the edit items reach a scripted fake edit helper.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QMenuBar>
#include <QTest>
#include <QTreeView>

#include <algorithm>
#include <sstream>

#include "Application/EditorModel.h"
#include "EditorMenus.h"
#include "EditorWindow.h"
#include "Hierarchy/HierarchyPane.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"
#include "Support/TemporaryFolder.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::ui {
namespace {

using ::testing::ElementsAre;

// /World with A and B.
editor::StageInspection worldStage() {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  editor::UsdPrimNode world = editor::testing::makePrimNode("/World", "Xform");
  world.children = {editor::testing::makePrimNode("/World/A", "Xform"),
                    editor::testing::makePrimNode("/World/B", "Xform")};
  stage.rootPrims.push_back(world);
  for (const char* path : {"/World", "/World/A", "/World/B"}) {
    editor::UsdPrimDetail prim;
    prim.path = path;
    prim.name = prim.path.substr(prim.path.rfind('/') + 1);
    prim.parent = prim.path == "/World" ? "/" : "/World";
    prim.typeName = "Xform";
    prim.entityPath = path;
    stage.prims.push_back(prim);
  }
  return stage;
}

class EditorMenusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.localMode = true;
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.editClientPath = ORVAN_FAKE_EDIT_CLIENT_PATH;
    configuration_.clientId = (folder_ / "journal").string();
    configuration_.scenePath = folder_.write("scene.usda", encodeJson(worldStage())).string();
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{.main = scheduler_,
                                                 .background = scheduler_.background(),
                                                 .preferences = preferences_,
                                                 .secrets = secrets_,
                                                 .processes = launcher_,
                                                 .http = http_,
                                                 .helperExchanges = &scheduler_.background()});
    model_->stageRefresher.refresh();
    settle();
    model_->revision.set(0);
    window_ = std::make_unique<EditorWindow>(*model_);
  }

  void settle() {
    for (int round = 0; round < 4; ++round) {
      scheduler_.runUntilQuiet();
      QCoreApplication::processEvents();
    }
  }
  QAction& item(const char* title) {
    QAction* found = window_->menus().action(QString::fromUtf8(title));
    EXPECT_NE(found, nullptr) << title;
    static QAction missing;
    return found ? *found : missing;
  }
  const editor::ViewportControls& controls() const {
    return model_->session.viewport.get().controls;
  }
  std::vector<std::string> commands() const {
    std::vector<std::string> lines;
    std::istringstream in(editor::testing::fileText(folder_ / "journal"));
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("launch", 0) != 0 && line != "ping" && line != "quit")
        lines.push_back(line);
    }
    return lines;
  }

  editor::testing::TemporaryFolder folder_;
  editor::EditorConfiguration configuration_;
  editor::testing::ManualScheduler scheduler_;
  editor::InMemoryPreferencesStore preferences_;
  editor::InMemorySecretStore secrets_;
  editor::PosixProcessLauncher launcher_;
  editor::testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<editor::EditorModel> model_;
  std::unique_ptr<EditorWindow> window_;
};

TEST_F(EditorMenusTest, TheMenuBarHoldsTheItemsInOrderWithTheirKeys) {
  std::vector<std::string> titles;
  for (QAction* menu : window_->menuBar()->actions()) {
    for (QAction* each : menu->menu()->actions()) {
      if (!each->isSeparator())
        titles.push_back(each->text().toStdString());
    }
  }
  EXPECT_THAT(
      titles,
      ElementsAre("Undo", "Redo", "Duplicate", "Delete", "Full 3D View", "Show Hierarchy",
                  "Show Inspector", "Show Project", "Project Asset Organization", "Show Grid",
                  "Show Rigid Body Shapes", "Refresh", "Frame Selection", "Frame All",
                  "Free Camera", "Game Camera", "World Transform Space", "Local Transform Space"));
  EXPECT_EQ(item("Undo").shortcut(), QKeySequence("Ctrl+Z"));
  EXPECT_EQ(item("Redo").shortcut(), QKeySequence("Ctrl+Shift+Z"));
  EXPECT_EQ(item("Duplicate").shortcut(), QKeySequence("Ctrl+D"));
  EXPECT_EQ(item("Delete").shortcut(), QKeySequence("Ctrl+Del"));
  EXPECT_EQ(item("Full 3D View").shortcut(), QKeySequence("Ctrl+F"));
  EXPECT_EQ(item("Refresh").shortcut(), QKeySequence("Ctrl+R"));
  EXPECT_TRUE(item("Frame All").shortcut().isEmpty());
}

TEST_F(EditorMenusTest, ViewportItemsSetTheControlsAndFollowThem) {
  item("Frame Selection").trigger();
  EXPECT_EQ(controls().frameSerial, 1u);
  EXPECT_EQ(controls().frameTarget, editor::ViewportFrameTarget::selection);
  item("Frame All").trigger();
  EXPECT_EQ(controls().frameSerial, 2u);
  EXPECT_EQ(controls().frameTarget, editor::ViewportFrameTarget::all);
  item("Frame Selection").trigger();
  EXPECT_EQ(controls().frameSerial, 3u) << "framing the same target again frames again";
  EXPECT_EQ(controls().frameTarget, editor::ViewportFrameTarget::selection);

  EXPECT_TRUE(item("Free Camera").isChecked());
  item("Game Camera").trigger();
  EXPECT_EQ(controls().cameraMode, editor::ViewportCameraMode::game);
  EXPECT_TRUE(item("Game Camera").isChecked());
  EXPECT_FALSE(item("Free Camera").isChecked());
  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.cameraMode = editor::ViewportCameraMode::free;
  });
  EXPECT_TRUE(item("Free Camera").isChecked());

  EXPECT_TRUE(item("World Transform Space").isChecked());
  item("Local Transform Space").trigger();
  EXPECT_EQ(controls().transformSpace, editor::ViewportTransformSpace::local);
  EXPECT_FALSE(item("World Transform Space").isChecked());
  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.transformSpace = editor::ViewportTransformSpace::world;
  });
  EXPECT_TRUE(item("World Transform Space").isChecked());
  EXPECT_FALSE(item("Local Transform Space").isChecked());
  EXPECT_EQ(controls().cameraMode, editor::ViewportCameraMode::free) << "one control at a time";
}

TEST_F(EditorMenusTest, TogglesFollowTheirPreferencesAndThePanesFollowTheToggles) {
  editor::ViewPreferences& preferences = model_->viewPreferences;
  EXPECT_FALSE(item("Show Grid").isChecked());
  item("Show Grid").trigger();
  EXPECT_TRUE(preferences.showViewportGrid.get());
  EXPECT_TRUE(item("Show Grid").isChecked());
  preferences.showViewportGrid.set(false);
  EXPECT_FALSE(item("Show Grid").isChecked());
  item("Show Rigid Body Shapes").trigger();
  EXPECT_TRUE(preferences.showRigidBodyShapes.get());

  item("Folders").trigger();
  EXPECT_EQ(preferences.projectAssetBrowserOrganization.get(),
            editor::ProjectAssetBrowserOrganization::folders);
  preferences.projectAssetBrowserOrganization.set(
      editor::ProjectAssetBrowserOrganization::typeAndClass);
  EXPECT_TRUE(item("Type and Class").isChecked());
  EXPECT_FALSE(item("Folders").isChecked());

  // The panes: the inspector goes; then Full 3D View leaves the viewport alone.
  EXPECT_TRUE(item("Show Inspector").isChecked());
  item("Show Inspector").trigger();
  EXPECT_FALSE(preferences.showInspectorPane.get());
  EXPECT_TRUE(window_->inspectorPane()->isHidden());
  EXPECT_FALSE(window_->projectPane()->isHidden());
  item("Full 3D View").trigger();
  EXPECT_TRUE(preferences.viewportFocusMode.get());
  EXPECT_TRUE(window_->projectPane()->isHidden());
  EXPECT_TRUE(window_->hierarchyPane()->parentWidget()->isHidden());
  EXPECT_FALSE(window_->viewportPane()->isHidden());
  EXPECT_FALSE(item("Show Project").isEnabled()) << "no pane to toggle in Full 3D View";
  // Leaving it brings the former layout back: the inspector stays hidden, the rest returns.
  preferences.viewportFocusMode.set(false);
  EXPECT_FALSE(item("Full 3D View").isChecked());
  EXPECT_TRUE(item("Show Project").isEnabled());
  EXPECT_TRUE(window_->inspectorPane()->isHidden());
  EXPECT_FALSE(window_->projectPane()->isHidden());
  EXPECT_FALSE(window_->hierarchyPane()->parentWidget()->isHidden());

  // With the hierarchy hidden its column stays for the layers, and goes without them.
  preferences.showLayerPane.set(true);
  item("Show Hierarchy").trigger();
  EXPECT_TRUE(window_->hierarchyPane()->isHidden());
  EXPECT_FALSE(window_->hierarchyPane()->parentWidget()->isHidden());
  preferences.showLayerPane.set(false);
  EXPECT_TRUE(window_->hierarchyPane()->parentWidget()->isHidden());
  preferences.showHierarchyPane.set(true);
  EXPECT_TRUE(item("Show Hierarchy").isChecked());
  EXPECT_FALSE(window_->hierarchyPane()->parentWidget()->isHidden());
}

TEST_F(EditorMenusTest, EditItemsGoToTheEditHelper) {
  EXPECT_FALSE(item("Delete").isEnabled()) << "nothing selected";
  model_->documents.selectPrims("/World", {"/World"});
  EXPECT_FALSE(item("Delete").isEnabled()) << "the world stays";
  model_->documents.selectPrims("/World/A", {"/World/A"});
  EXPECT_TRUE(item("Delete").isEnabled());

  item("Undo").trigger();
  settle();
  item("Redo").trigger();
  settle();
  item("Duplicate").trigger();
  settle();
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/A_1");
  model_->documents.selectPrims("/World/B", {"/World/B"});
  item("Delete").trigger();
  settle();
  const std::vector<std::string> sent = commands();
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0], "history\t0\tundo");
  EXPECT_EQ(sent[1], "history\t1\tredo");
  EXPECT_EQ(sent[2], "prims\t2\t1\tduplicate\t/World/A\t/World\tA_1");
  EXPECT_EQ(sent[3], "prims\t3\t1\tdelete\t/World/B");

  // Refresh asks for the stage again and keeps what waits in the queue.
  const editor::AtomicOperation waiting{
      editor::HistoryAtomicOperation{editor::HistoryOperationKind::undo}};
  model_->operations.state.pendingOperations.push_back(waiting);
  const std::uint64_t generation = model_->stageRefresher.refreshGeneration;
  item("Refresh").trigger();
  EXPECT_EQ(model_->stageRefresher.refreshGeneration, generation + 1);
  EXPECT_TRUE(model_->stageRefresher.stageRefreshInFlight);
  EXPECT_THAT(model_->operations.state.pendingOperations, ElementsAre(waiting));
  model_->operations.state.pendingOperations.clear();
  settle();
}

TEST_F(EditorMenusTest, TheWindowsDuplicateKeyWorksWithTheHierarchyFocused) {
  window_->show();
  window_->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
  settle();
  model_->documents.selectPrims("/World/B", {"/World/B"});
  settle();
  QTreeView& tree = window_->hierarchy().view();
  tree.setFocus();
  QTest::keyClick(&tree, Qt::Key_D, Qt::ControlModifier);
  settle();
  // Once: two owners of the key would leave it to neither, two handlers would copy twice.
  const std::vector<std::string> sent = commands();
  EXPECT_EQ(std::count_if(sent.begin(), sent.end(),
                          [](const std::string& line) {
                            return line.ends_with("duplicate\t/World/B\t/World\tB_1");
                          }),
            1)
      << ::testing::PrintToString(sent);
}

}  // namespace
}  // namespace orvan::ui
