#include <gtest/gtest.h>

#include <QItemSelectionModel>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTreeView>

#include "Application/EditorModel.h"
#include "Hierarchy/HierarchyPane.h"
#include "Hierarchy/HierarchyTreeModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Presentation/PreparedStage.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"

namespace orvan::ui {
namespace {

using editor::StageInspection;
using editor::UsdPrimNode;

UsdPrimNode makeChild(const UsdPrimNode& parent, const std::string& name, const std::string& type) {
  UsdPrimNode node;
  node.parent = parent.path;
  node.path = parent.path + "/" + name;
  node.name = name;
  node.typeName = type;
  return node;
}

class HierarchyPaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{scheduler_, scheduler_.background(), preferences_,
                                                 secrets_, launcher_, http_});
    pane_ = std::make_unique<HierarchyPane>(*model_);
    pane_->resize(260, 300);
    pane_->show();
    testing::processEventsUntil([&] { return pane_->isVisible(); }, 2000);
  }

  void publish(StageInspection stage) {
    const auto document = editor::EditorClientDocumentState::makeSnapshot(
        editor::PreparedStage::prepare(std::move(stage)), {});
    model_->clientDocument.publish(document, true, false);
    QCoreApplication::processEvents();
  }

  bool selected(const std::string& path) {
    const QModelIndex row = pane_->treeModel().indexForPath(path);
    return row.isValid() && pane_->view().selectionModel()->isRowSelected(row.row(), row.parent());
  }

  editor::EditorConfiguration configuration_;
  editor::testing::ManualScheduler scheduler_;
  editor::InMemoryPreferencesStore preferences_;
  editor::InMemorySecretStore secrets_;
  editor::PosixProcessLauncher launcher_;
  editor::testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<editor::EditorModel> model_;
  std::unique_ptr<HierarchyPane> pane_;
};

// What a user was looking at survives a refresh that touches other rows: the scroll position, the
// open rows, the selection and the current row; and the pane sends nothing back to the model.
TEST_F(HierarchyPaneTest, ARefreshKeepsWhatTheUserWasLookingAt) {
  StageInspection stage = editor::testing::makeTreeStage(30, 20, 2);
  publish(stage);
  QTreeView& view = pane_->view();
  HierarchyTreeModel& tree = pane_->treeModel();
  view.setExpanded(tree.indexForPath("/Root12"), true);
  model_->documents.selectPrims("/Root12/Child4", {"/Root12/Child4", "/Root3/Child1"});
  QCoreApplication::processEvents();
  view.verticalScrollBar()->setValue(20);
  QCoreApplication::processEvents();
  const int scrolled = view.verticalScrollBar()->value();
  ASSERT_GT(scrolled, 0) << "the tree is taller than the pane";
  QSignalSpy resets(&tree, &QAbstractItemModel::modelReset);
  int selectionsSent = 0;
  const auto watch =
      model_->session.sceneSelection.subscribe([&](const auto&) { ++selectionsSent; });

  // A prim is added far below, another row changes its type, and a branch goes.
  stage.rootPrims[28].children.push_back(makeChild(stage.rootPrims[28], "Added", "Cube"));
  stage.rootPrims[12].children[6].typeName = "Cone";
  stage.rootPrims.erase(stage.rootPrims.begin() + 20);
  publish(stage);
  QCoreApplication::processEvents();

  EXPECT_EQ(resets.count(), 0);
  EXPECT_EQ(view.verticalScrollBar()->value(), scrolled);
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/Root12")));
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/Root3"))) << "opened to show the selection";
  EXPECT_TRUE(selected("/Root12/Child4"));
  EXPECT_TRUE(selected("/Root3/Child1"));
  EXPECT_EQ(tree.pathForIndex(view.selectionModel()->currentIndex()), "/Root12/Child4");
  EXPECT_EQ(tree.index(6, 1, tree.indexForPath("/Root12")).data().toString(), "Cone");
  EXPECT_EQ(tree.rowCount(), 29);
  EXPECT_EQ(selectionsSent, 0);

  // The selected prim goes: its row leaves the view's selection, and the model's own reconcile,
  // not the pane, decides what the scene selection becomes.
  stage.rootPrims[12].children.erase(stage.rootPrims[12].children.begin() + 4);
  publish(stage);
  QCoreApplication::processEvents();
  EXPECT_FALSE(selected("/Root12/Child4"));
  EXPECT_TRUE(selected("/Root3/Child1"));
  EXPECT_EQ(selectionsSent, 0);

  // A prim selected before its row exists (a structural edit on its way) is shown and revealed
  // once the row arrives, even under a closed row.
  ASSERT_FALSE(view.isExpanded(tree.indexForPath("/Root7/Child2")));
  model_->documents.selectPrims("/Root7/Child2/Made", {"/Root7/Child2/Made"});
  QCoreApplication::processEvents();
  auto& child2 = stage.rootPrims[7].children[2];
  child2.children.push_back(makeChild(child2, "Made", "Cube"));
  publish(stage);
  EXPECT_TRUE(selected("/Root7/Child2/Made"));
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/Root7/Child2")));
  EXPECT_EQ(tree.pathForIndex(view.selectionModel()->currentIndex()), "/Root7/Child2/Made");

  // The stage goes away and comes back: the first stage's default shape again.
  publish(StageInspection::empty());
  EXPECT_EQ(pane_->emptyStateText(), "No stage loaded");
  publish(stage);
  EXPECT_TRUE(pane_->emptyStateText().isEmpty());
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/Root0")));
}

}  // namespace
}  // namespace orvan::ui
