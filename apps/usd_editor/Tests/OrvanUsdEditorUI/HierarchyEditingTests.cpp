// Editing the scene through the hierarchy pane: its keys, its context menu, inline rename and
// drops, against a scripted fake edit helper on real pipes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QTest>
#include <QTreeView>

#include <fstream>
#include <sstream>

#include "Application/EditorModel.h"
#include "Hierarchy/HierarchyPane.h"
#include "Hierarchy/HierarchyTreeModel.h"
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

using ::testing::Contains;
using ::testing::ElementsAre;

// /World with A, B, and Set (an instance root) with its proxy Leg.
editor::StageInspection sceneStage() {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  editor::UsdPrimNode world = editor::testing::makePrimNode("/World", "Xform");
  editor::UsdPrimNode set = editor::testing::makePrimNode("/World/Set", "Xform");
  set.children.push_back(editor::testing::makePrimNode("/World/Set/Leg", "Xform"));
  world.children = {editor::testing::makePrimNode("/World/A", "Xform"),
                    editor::testing::makePrimNode("/World/B", "Xform"), set};
  stage.rootPrims.push_back(world);
  for (const char* path : {"/World", "/World/A", "/World/B", "/World/Set", "/World/Set/Leg"}) {
    editor::UsdPrimDetail prim;
    prim.path = path;
    prim.name = prim.path.substr(prim.path.rfind('/') + 1);
    prim.parent = prim.path == "/World" ? "/" : prim.path.substr(0, prim.path.rfind('/'));
    prim.entityPath = path;
    stage.prims.push_back(prim);
  }
  stage.prims[3].instanceable = true;
  stage.prims[4].instanceProxy = true;
  return stage;
}

class HierarchyEditingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.editClientPath = ORVAN_FAKE_EDIT_CLIENT_PATH;
    configuration_.clientId = (folder_ / "journal").string();
    configuration_.scenePath = folder_.write("scene.usda", encodeJson(sceneStage())).string();
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{.main = scheduler_,
                                                 .background = scheduler_.background(),
                                                 .preferences = preferences_,
                                                 .secrets = secrets_,
                                                 .processes = launcher_,
                                                 .http = http_,
                                                 .helperExchanges = &scheduler_.background()});
    statusWatch_ =
        model_->status.subscribe([this](const std::string& text) { statuses_.push_back(text); });
    pane_ = std::make_unique<HierarchyPane>(*model_);
    pane_->resize(300, 400);
    pane_->show();
    model_->stageRefresher.refresh();
    settle();
    pane_->view().expandAll();
    model_->revision.set(0);
  }

  // Runs the model's work and the pane's events until both are quiet.
  void settle() {
    for (int round = 0; round < 4; ++round) {
      scheduler_.runUntilQuiet();
      QCoreApplication::processEvents();
    }
  }
  void select(const std::string& path) {
    model_->documents.selectPrims(path, {path});
    settle();
    pane_->view().setFocus();
  }
  bool hasRow(const std::string& path) { return pane_->treeModel().indexForPath(path).isValid(); }
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
  std::vector<std::string> statuses_;
  editor::Subscription statusWatch_;
  std::unique_ptr<HierarchyPane> pane_;
};

TEST_F(HierarchyEditingTest, DeleteDuplicateRenameAndReparentFromThePane) {
  ASSERT_TRUE(hasRow("/World/A"));
  QTreeView& view = pane_->view();
  HierarchyTreeModel& tree = pane_->treeModel();

  select("/World/A");
  QTest::keyClick(&view, Qt::Key_Delete);
  EXPECT_THAT(statuses_, Contains("Publishing delete A"));
  settle();
  EXPECT_FALSE(hasRow("/World/A"));

  select("/World/B");
  QTest::keyClick(&view, Qt::Key_D, Qt::ControlModifier);
  settle();
  EXPECT_TRUE(hasRow("/World/B_1"));
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/B_1")
      << "the copy ends up selected";

  select("/World/B");
  view.setCurrentIndex(tree.indexForPath("/World/B"));
  QTest::keyClick(&view, Qt::Key_F2);
  QCoreApplication::processEvents();
  auto* editor = view.viewport()->findChild<QLineEdit*>();
  ASSERT_NE(editor, nullptr) << "F2 renames inline";
  editor->selectAll();
  QTest::keyClicks(editor, "Bee");
  QTest::keyClick(editor, Qt::Key_Return);
  QCoreApplication::processEvents();  // the delegate commits on the next turn
  EXPECT_THAT(statuses_, Contains("Publishing rename /World/B"));
  settle();
  EXPECT_TRUE(hasRow("/World/Bee"));
  EXPECT_FALSE(hasRow("/World/B"));

  const QModelIndex copy = tree.indexForPath("/World/B_1");
  std::unique_ptr<QMimeData> dragged(tree.mimeData({copy}));
  EXPECT_FALSE(
      tree.dropMimeData(dragged.get(), Qt::MoveAction, -1, -1, tree.indexForPath("/World/Set")));
  EXPECT_EQ(model_->status.get(),
            "Can't add inside an instance \u2014 disable Instance on Set first");
  EXPECT_TRUE(hasRow("/World/B_1"));
  EXPECT_FALSE(
      tree.dropMimeData(dragged.get(), Qt::MoveAction, -1, -1, tree.indexForPath("/World/Bee")));
  EXPECT_THAT(statuses_, Contains("Publishing move B_1"));
  settle();
  EXPECT_TRUE(hasRow("/World/Bee/B_1"));

  EXPECT_THAT(commands(), ElementsAre("prims\t0\t1\tdelete\t/World/A",
                                      "prims\t1\t1\tduplicate\t/World/B\t/World\tB_1",
                                      "prims\t2\t1\treparent\t/World/B\t/World\tBee",
                                      "prims\t3\t1\treparent\t/World/B_1\t/World/Bee\tB_1"));
}

TEST_F(HierarchyEditingTest, TheContextMenuAddsAndFlipsTheInstanceFlag) {
  std::unique_ptr<QMenu> empty = pane_->contextMenuFor("");
  ASSERT_EQ(empty->actions().size(), 1) << "only Add below the rows";
  std::unique_ptr<QMenu> menu = pane_->contextMenuFor("/World/Set");
  std::vector<std::string> titles;
  for (QAction* action : menu->actions()) {
    if (!action->isSeparator())
      titles.push_back(action->text().toStdString());
  }
  EXPECT_THAT(titles, ElementsAre("Add", "Delete", "Duplicate", "Rename", "Remove Instance"));
  EXPECT_EQ(menu->actions()[2]->shortcut(), QKeySequence::Delete);

  select("/World");
  QMenu* add = menu->actions()[0]->menu();
  ASSERT_NE(add, nullptr);
  add->actions()[1]->trigger();  // Cube
  settle();
  EXPECT_TRUE(hasRow("/World/Cube"));

  menu->actions().back()->trigger();
  settle();
  EXPECT_THAT(commands(), ElementsAre("prims\t0\t1\tadd\t/World\tCube\tcube",
                                      "prims\t1\t1\tset-instanceable\t/World/Set\tfalse"));
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/Cube");
}

}  // namespace
}  // namespace orvan::ui
