// The editor window over a real model: a fake inspector process supplies the stage, virtual time
// runs the model, and the Qt event loop runs the widgets.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>
#include "Project/ProjectAssetTreeModel.h"

#include <filesystem>

#include "Application/EditorModel.h"
#include "ConnectionBanner.h"
#include "EditorWindow.h"
#include "Hierarchy/HierarchyPane.h"
#include "Hierarchy/HierarchyTreeModel.h"
#include "Inspector/InspectorPane.h"
#include "Layers/LayerPane.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Project/ProjectPane.h"
#include "QtApplicationEnvironment.h"
#include "StartupSheet.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"

namespace orvan::ui {
namespace {

namespace fs = std::filesystem;
using testing::processEventsUntil;

// The fields a tree node and a flat detail share, named and parented by the path.
std::string primFields(const std::string& path, const std::string& type) {
  const auto slash = path.rfind('/');
  return R"({"path":")" + path + R"(","name":")" + path.substr(slash + 1) + R"(","typeName":")" +
         type + R"(","parent":")" + (slash == 0 ? "/" : path.substr(0, slash)) +
         R"(","active":true,"badges":[])";
}

std::string node(const std::string& path, const std::string& type,
                 const std::string& children = "") {
  return primFields(path, type) + R"(,"children":[)" + children + "]}";
}

std::string detail(const std::string& path, const std::string& type,
                   const std::string& components = "", const std::string& attributes = "") {
  return primFields(path, type) + R"(,"entityPath":")" + path + R"(","entityId":1,"components":[)" +
         components + R"(],"attributes":[)" + attributes + "]}";
}

// /World (Xform) with Ground and Player/Body; /Lights with Sun. `withPlayer` false drops Player.
std::string stageJson(bool withPlayer = true) {
  const std::string player =
      withPlayer ? "," + node("/World/Player", "Xform", node("/World/Player/Body", "Capsule")) : "";
  const std::string roots = node("/World", "Xform", node("/World/Ground", "Mesh") + player) + "," +
                            node("/Lights", "Scope", node("/Lights/Sun", "DistantLight"));
  const std::string components =
      R"({"type":"Transform","enabled":true,"properties":[)"
      R"j({"name":"position","kind":"vector3","value":"(0, 1.5, -2)"}]},)j"
      R"({"type":"GameRules","label":"Rules","enabled":false,"properties":[)"
      R"({"name":"paused","kind":"bool","value":"false"}]})";
  const std::string attributes =
      R"({"name":"visibility","type":"token","value":"inherited"},)"
      R"({"name":"orvan:ambientLightStrength","type":"float","value":"0.6"})";
  std::string prims = detail("/World", "Xform", components, attributes) + "," +
                      detail("/World/Ground", "Mesh") + "," + detail("/Lights", "Scope") + "," +
                      detail("/Lights/Sun", "DistantLight");
  if (withPlayer)
    prims += "," + detail("/World/Player", "Xform") + "," + detail("/World/Player/Body", "Capsule");
  return R"({"sceneUri":"/demo/scene.usda","rootPrims":[)" + roots + R"(],"prims":[)" + prims +
         R"(],"catalog":[],"assets":[]})";
}

class EditorWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.localMode = true;
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.scenePath = writeScene("scene.usda", stageJson());
  }

  std::string writeScene(const std::string& name, const std::string& contents) {
    return folder_.write(name, contents).string();
  }

  // Shows the window (which starts the editor) and lets the inspector's stage arrive.
  EditorWindow& openWindow(bool loadStage = true) {
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{scheduler_, scheduler_.background(), preferences_,
                                                 secrets_, launcher_, http_});
    window_ = std::make_unique<EditorWindow>(*model_);
    window_->show();
    processEventsUntil([&] { return window_->isVisible(); }, 2000);
    if (loadStage)
      scheduler_.runUntilQuiet();
    return *window_;
  }

  // Lets the window's queued work and the model's follow-up work run, in turns.
  void settle() {
    for (int turn = 0; turn < 3; ++turn) {
      processEventsUntil([] { return false; }, 10);
      scheduler_.runUntilQuiet();
    }
  }

  QStringList rootNames() const {
    const HierarchyTreeModel& tree = window_->hierarchy().treeModel();
    QStringList names;
    for (int row = 0; row < tree.rowCount(); ++row)
      names << tree.index(row, 0).data().toString();
    return names;
  }

  void selectRows(const std::vector<std::string>& paths, const std::string& current) {
    QTreeView& view = window_->hierarchy().view();
    HierarchyTreeModel& tree = window_->hierarchy().treeModel();
    QItemSelection rows;
    for (const auto& path : paths)
      rows.select(tree.indexForPath(path), tree.indexForPath(path));
    view.selectionModel()->select(rows,
                                  QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    view.selectionModel()->setCurrentIndex(tree.indexForPath(current),
                                           QItemSelectionModel::NoUpdate);
    settle();
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

TEST_F(EditorWindowTest, FirstShowingLoadsTheLocalStageIntoHierarchyTitleAndStatus) {
  EditorWindow& window = openWindow(false);
  EXPECT_EQ(window.hierarchy().emptyStateText(), "No stage loaded");
  EXPECT_EQ(window.inspector().emptyStateText(), "No stage loaded");
  EXPECT_EQ(model_->stageRefresher.refreshGeneration, 1u)
      << "the first showing starts the editor once";
  window.hide();
  window.show();
  EXPECT_EQ(model_->stageRefresher.refreshGeneration, 1u);

  scheduler_.runUntilQuiet();
  EXPECT_EQ(window.windowTitle(), QString::fromUtf8("scene.usda \u2014 Local"));
  EXPECT_EQ(window.statusText(), "Loaded composed OpenUSD stage");
  EXPECT_EQ(rootNames(), (QStringList{"World", "Lights"}));
  HierarchyTreeModel& tree = window.hierarchy().treeModel();
  const QModelIndex world = tree.indexForPath("/World");
  EXPECT_EQ(tree.rowCount(world), 2);
  EXPECT_EQ(tree.index(1, HierarchyTreeModel::kTypeColumn, world).data().toString(), "Xform");
  EXPECT_TRUE(window.hierarchy().view().isExpanded(world)) << "a first stage opens its roots";
  EXPECT_EQ(window.inspector().emptyStateText(), "Nothing selected");
  EXPECT_FALSE(window.startupSheet().isVisible());
  EXPECT_FALSE(window.connectionBanner().isVisible());

  // Without local mode there is no suffix.
  window_.reset();
  configuration_.localMode = false;
  EXPECT_EQ(openWindow().windowTitle(), "scene.usda");
}

TEST_F(EditorWindowTest, SelectingRowsSelectsPrimsAndFillsTheInspector) {
  openWindow();
  selectRows({"/World"}, "/World");
  const auto& selection = model_->session.sceneSelection.get();
  EXPECT_EQ(selection.primaryPath, "/World");
  EXPECT_EQ(selection.paths, (std::vector<std::string>{"/World"}));
  const QStringList lines = window_->inspector().contentLines();
  EXPECT_EQ(lines.mid(0, 3), (QStringList{"World", "Xform", "/World"}))
      << lines.join(" | ").toStdString();
  EXPECT_TRUE(lines.contains("Transform")) << lines.join(" | ").toStdString();
  EXPECT_TRUE(lines.contains("position: 0 1.5 -2")) << lines.join(" | ").toStdString();
  EXPECT_TRUE(lines.contains("Rules")) << "a component's label titles its section";
  EXPECT_TRUE(lines.contains("paused: Off"));
  EXPECT_TRUE(lines.contains("Attributes"));
  EXPECT_TRUE(lines.contains("visibility: inherited"));

  // A long name is shortened in its middle at the pane's default width, and shown whole once the
  // pane is wide enough.
  QLabel* longName = nullptr;
  for (QLabel* name : window_->inspector().findChildren<QLabel*>("PropertyName")) {
    if (name->property("plainName") == "orvan:ambientLightStrength")
      longName = name;
  }
  ASSERT_NE(longName, nullptr);
  EXPECT_TRUE(longName->text().startsWith("orvan:")) << longName->text().toStdString();
  EXPECT_TRUE(longName->text().contains(QChar(0x2026))) << longName->text().toStdString();
  window_->resize(1800, window_->height());
  auto* columns = window_->findChild<QSplitter*>();
  ASSERT_NE(columns, nullptr);
  QList<int> sizes = columns->sizes();
  sizes.back() += 400;
  sizes[1] -= 400;
  columns->setSizes(sizes);
  settle();
  EXPECT_GE(window_->inspector().width(), 600);
  EXPECT_EQ(longName->text().toStdString(), "orvan:ambientLightStrength");
  EXPECT_TRUE(lines.contains("orvan:ambientLightStrength: 0.6")) << "tests read whole names";

  // Several rows: the current row is the primary one.
  selectRows({"/World", "/Lights/Sun"}, "/Lights/Sun");
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/Lights/Sun");
  EXPECT_EQ(model_->session.sceneSelection.get().paths.size(), 2u);
  EXPECT_EQ(window_->inspector().contentLines().value(0), "Sun");
}

TEST_F(EditorWindowTest, TheTreeFollowsSelectionsMadeElsewhereAndKeepsItsShapeAcrossRefreshes) {
  openWindow();
  QTreeView& view = window_->hierarchy().view();
  HierarchyTreeModel& tree = window_->hierarchy().treeModel();
  model_->documents.selectPrims("/World/Player/Body", {"/World/Player/Body"});
  settle();
  const QModelIndex body = tree.indexForPath("/World/Player/Body");
  EXPECT_TRUE(view.selectionModel()->isRowSelected(body.row(), body.parent()));
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/World/Player"))) << "a selection is revealed";
  EXPECT_EQ(model_->session.sceneSelection.get().paths.size(), 1u) << "nothing was sent back";
  view.setExpanded(tree.indexForPath("/Lights"), false);

  // The next stage no longer has the selected prim's branch.
  const std::string next = writeScene("next.usda", stageJson(false));
  model_->scope.current.update([&](editor::SharedClientScope& place) { place.scene = next; });
  model_->stageRefresher.refresh();
  scheduler_.runUntilQuiet();
  settle();
  EXPECT_TRUE(model_->session.sceneSelection.get().paths.empty());
  EXPECT_TRUE(view.selectionModel()->selectedRows().isEmpty());
  EXPECT_EQ(window_->inspector().emptyStateText(), "Nothing selected");
  EXPECT_TRUE(view.isExpanded(tree.indexForPath("/World")))
      << "expanded rows that remain stay open";
  EXPECT_FALSE(view.isExpanded(tree.indexForPath("/Lights"))) << "collapsed rows stay closed";
}

TEST_F(EditorWindowTest, TheStartupSheetCoversAHostedLaunchUntilTheProjectResolves) {
  EXPECT_FALSE(openWindow().startupSheet().isVisible()) << "a local launch never shows the sheet";
  EXPECT_FALSE(window_->accountButton()->isVisible()) << "nor an account";
  window_.reset();
  model_.reset();

  configuration_.projectServerURL = "http://127.0.0.1:9";
  configuration_.projectId = "demo";
  configuration_.scenePath = "";
  EditorWindow& window = openWindow(false);
  StartupSheet& sheet = window.startupSheet();
  ASSERT_TRUE(sheet.isVisible());
  EXPECT_EQ(sheet.title(), "Opening Project");
  EXPECT_EQ(sheet.message(), "http://127.0.0.1:9");
  EXPECT_EQ(sheet.geometry(), window.rect()) << "the sheet covers the whole window";
  EXPECT_FALSE(sheet.primaryButton()->isVisible());

  // An issue replaces the words and brings its actions; Retry starts the editor again.
  model_->startup.connectionIssue.set(
      editor::VelkConnectionIssue::classify(0, "server_error", false, {}, "boom"));
  EXPECT_EQ(sheet.title(), "Velk hit a server problem");
  ASSERT_TRUE(sheet.primaryButton()->isVisible());
  EXPECT_EQ(sheet.primaryButton()->text(), "Retry");
  EXPECT_FALSE(window.connectionBanner().isVisible()) << "the sheet alone tells a start-up issue";
  const auto generation = model_->startup.initialProjectResolutionGeneration;
  sheet.primaryButton()->click();
  EXPECT_EQ(model_->startup.initialProjectResolutionGeneration, generation + 1);
  EXPECT_FALSE(model_->startup.connectionIssue.get().has_value());
  EXPECT_EQ(sheet.title(), "Opening Project");

  model_->startup.initialProjectResolved.set(true);
  EXPECT_FALSE(sheet.isVisible());

  // The account button offers sign-in; a callback link signs in and it offers to log out.
  QToolButton* account = window.accountButton();
  ASSERT_TRUE(account->isVisible());
  EXPECT_EQ(account->text(), "Not signed in");
  ASSERT_EQ(account->menu()->actions().size(), 1);
  EXPECT_EQ(account->menu()->actions()[0]->text(), "Sign In");
  account->menu()->actions()[0]->trigger();
  EXPECT_EQ(model_->status.get(), "Could not open a browser for Velk sign-in") << "no browser here";
  model_->handleIncomingURL("velk://auth-callback?token=t&displayName=Ann");
  // No sign-in was started here (no browser answered), so the window asks before it applies.
  QMessageBox* question = window.signInQuestion();
  ASSERT_NE(question, nullptr);
  EXPECT_TRUE(question->text().contains("http://127.0.0.1:9")) << question->text().toStdString();
  EXPECT_EQ(account->text(), "Not signed in");
  QAbstractButton* apply = nullptr;
  for (QAbstractButton* button : question->buttons()) {
    if (question->buttonRole(button) == QMessageBox::AcceptRole)
      apply = button;
  }
  ASSERT_NE(apply, nullptr);
  apply->click();
  EXPECT_EQ(window.signInQuestion(), nullptr);
  EXPECT_EQ(account->text(), "Ann");
  ASSERT_EQ(account->menu()->actions().size(), 1);
  EXPECT_EQ(account->menu()->actions()[0]->text(), "Log Out");
  account->menu()->actions()[0]->trigger();
  EXPECT_FALSE(model_->account.isVelkSignedIn());
  EXPECT_EQ(account->text(), "Not signed in");
}

TEST_F(EditorWindowTest, AFailedLoadShowsABannerWhoseRetryAndDismissWork) {
  configuration_.scenePath =
      writeScene("broken.usda", "#fail 3 broken.usda:4:7: expected '(' after def\n");
  EditorWindow& window = openWindow();
  ConnectionBanner& banner = window.connectionBanner();
  ASSERT_TRUE(banner.isVisible());
  EXPECT_EQ(banner.title(), "Velk could not complete that request");
  EXPECT_TRUE(banner.detail().contains("expected '(' after def")) << banner.detail().toStdString();
  EXPECT_TRUE(window.statusText().startsWith("Refresh failed: "));
  EXPECT_EQ(window.hierarchy().emptyStateText(), "No stage loaded");

  // Retry asks the inspector again; this time the scene is good.
  writeScene("broken.usda", stageJson());
  const auto generation = model_->stageRefresher.refreshGeneration;
  banner.retryButton()->click();
  EXPECT_EQ(model_->stageRefresher.refreshGeneration, generation + 1);
  EXPECT_FALSE(banner.isVisible());
  scheduler_.runUntilQuiet();
  EXPECT_EQ(rootNames(), (QStringList{"World", "Lights"}));

  model_->startup.connectionIssue.set(
      editor::VelkConnectionIssue::classify(0, "", false, {}, "again"));
  ASSERT_TRUE(banner.isVisible());
  banner.dismissButton()->click();
  EXPECT_FALSE(model_->startup.connectionIssue.get().has_value());
  EXPECT_FALSE(banner.isVisible());
  EXPECT_EQ(rootNames(), (QStringList{"World", "Lights"})) << "dismissing keeps the stage";
}

TEST_F(EditorWindowTest, TheProjectPaneGroupsTheFolderAndPointsTheInspectorAtAPickedAsset) {
  configuration_.projectPath = folder_.path().string();
  writeScene("textures/Brick.PNG", "png");
  writeScene("notes.txt", "text");
  openWindow();
  settle();
  auto groups = [&] {
    QStringList lines;
    const QAbstractItemModel& tree = window_->project().treeModel();
    for (int group = 0; group < tree.rowCount(); ++group) {
      const QModelIndex header = tree.index(group, 0);
      QString line = header.data().toString() + ":";
      for (int row = 0; row < tree.rowCount(header); ++row)
        line += " " + tree.index(row, 0, header).data().toString();
      lines << line;
    }
    return lines;
  };
  EXPECT_EQ(groups(), (QStringList{"USD: scene.usda", "Image: Brick.PNG", "File: notes.txt"}))
      << groups().join(" | ").toStdString();

  // The picker regroups by folder and the choice is the model's, kept between runs.
  window_->project().organizationPicker().setCurrentIndex(1);
  EXPECT_EQ(model_->viewPreferences.projectAssetBrowserOrganization.get(),
            editor::ProjectAssetBrowserOrganization::folders);
  EXPECT_EQ(groups(), (QStringList{"Project: notes.txt scene.usda", "textures: Brick.PNG"}))
      << groups().join(" | ").toStdString();

  // Picking a row points the inspector at that asset; picking a prim points it back.
  QTreeView& projectTree = window_->project().tree();
  const QModelIndex brick = projectTree.model()->index(0, 0, projectTree.model()->index(1, 0));
  EXPECT_TRUE(projectTree.isExpanded(brick.parent())) << "groups open when they appear";
  projectTree.selectionModel()->select(
      brick, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
  settle();
  ASSERT_TRUE(model_->session.projectAssetSelection.get().selection.has_value());
  EXPECT_EQ(model_->session.projectAssetSelection.get().selection->path, "textures/Brick.PNG");
  const QStringList lines = window_->inspector().contentLines();
  EXPECT_EQ(lines.mid(0, 3), (QStringList{"Brick.PNG", "Image", "textures/Brick.PNG"}))
      << lines.join(" | ").toStdString();
  EXPECT_TRUE(lines.contains("folder: textures")) << lines.join(" | ").toStdString();

  selectRows({"/Lights/Sun"}, "/Lights/Sun");
  EXPECT_EQ(window_->inspector().contentLines().value(0), "Sun");

  // The asset disappears from the folder: the pane drops its row on the next listing.
  fs::remove(folder_ / "textures/Brick.PNG");
  model_->projectData.refreshProjectData(true);
  scheduler_.runUntilQuiet();
  settle();
  EXPECT_EQ(groups(), (QStringList{"Project: notes.txt scene.usda"}));
}

// The layer pane sits under the hierarchy, hidden until its toolbar toggle; the toggle and the
// preference follow each other, and the pane lists the stage's layers.
TEST_F(EditorWindowTest, TheLayerPaneShowsUnderTheHierarchyWhenToggled) {
  std::string stage = stageJson();
  stage.insert(stage.size() - 1,
               R"(,"layers":[{"identifier":"/demo/scene.usda","name":"scene.usda",)"
               R"("path":"scene.usda","root":true,"muted":false,"writable":true},)"
               R"({"identifier":"/demo/base.usda","name":"base.usda","path":"base.usda",)"
               R"("root":false,"muted":false,"writable":true}])");
  configuration_.scenePath = writeScene("layered.usda", stage);
  EditorWindow& window = openWindow();
  ASSERT_FALSE(model_->currentStage().layers.empty()) << model_->status.get();
  EXPECT_FALSE(window.layerPane()->isVisible()) << "hidden at each start";
  EXPECT_EQ(window.layerPane()->parentWidget(), window.hierarchyPane()->parentWidget());

  window.layerPaneToggle()->trigger();
  settle();
  EXPECT_TRUE(window.layerPane()->isVisible());
  EXPECT_TRUE(model_->viewPreferences.showLayerPane.get());
  EXPECT_GT(window.layerPane()->height(), 0);
  ASSERT_EQ(window.layers().view().topLevelItemCount(), 2);
  EXPECT_EQ(window.layers().view().topLevelItem(1)->text(LayerPane::kActiveColumn), "Editing")
      << "the base layer receives edits";

  model_->viewPreferences.showLayerPane.set(false);
  settle();
  EXPECT_FALSE(window.layerPane()->isVisible());
  EXPECT_FALSE(window.layerPaneToggle()->isChecked());
}

}  // namespace
}  // namespace orvan::ui
