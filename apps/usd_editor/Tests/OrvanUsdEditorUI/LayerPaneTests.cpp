// The layer pane against the model and the scripted fake edit helper: its rows and marks, the
// context menu's commands, the mute boxes, drops, and the questions asked before a change.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QDropEvent>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTreeWidget>

#include <filesystem>
#include <sstream>

#include "Application/EditorModel.h"
#include "Layers/LayerPane.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::ui {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

editor::UsdLayerInfo layer(std::string identifier, bool root = false, bool writable = true,
                           bool muted = false, bool system = false) {
  editor::UsdLayerInfo each;
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

// Strongest first: the root, the workspace's edit layer, two plain layers and a read-only one.
std::vector<editor::UsdLayerInfo> stack() {
  return {layer("scene.usda", true), layer("ws.usda", false, true, false, true), layer("a.usda"),
          layer("b.usda"), layer("ro.usda", false, false)};
}

editor::StageInspection layeredStage(std::vector<editor::UsdLayerInfo> layers) {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  editor::UsdPrimDetail world;
  world.path = "/World";
  world.name = "World";
  world.parent = "/";
  stage.prims.push_back(world);
  editor::UsdPrimNode node;
  node.path = "/World";
  node.name = "World";
  node.parent = "/";
  stage.rootPrims.push_back(node);
  stage.layers = std::move(layers);
  return stage;
}

// The pane on a model whose local scene the scripted inspector serves, editing through the
// scripted edit helper (its journal is the client id), on a manual scheduler.
class LayerPaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.editClientPath = ORVAN_FAKE_EDIT_CLIENT_PATH;
    configuration_.clientId = journal_.string();
    configuration_.scenePath =
        folder_.write("scene.usda", editor::encodeJson(layeredStage(stack()))).string();
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{.main = scheduler_,
                                                 .background = scheduler_.background(),
                                                 .preferences = preferences_,
                                                 .secrets = secrets_,
                                                 .processes = launcher_,
                                                 .http = http_,
                                                 .helperExchanges = &scheduler_.background()});
    model_->stageRefresher.refresh();
    scheduler_.runUntilQuiet();
    ASSERT_FALSE(model_->currentStage().prims.empty()) << model_->status.get();
    pane_ = std::make_unique<LayerPane>(*model_);
    pane_->resize(260, 200);
    pane_->show();
    settle();
  }
  void TearDown() override {
    pane_.reset();
    model_.reset();
  }

  void settle() {
    for (int round = 0; round < 4; ++round) {
      scheduler_.runUntilQuiet();
      QCoreApplication::processEvents();
    }
  }
  std::vector<std::string> commands() const {
    std::vector<std::string> lines;
    std::istringstream in(editor::testing::fileText(journal_));
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("launch", 0) != 0 && line != "ping" && line != "quit")
        lines.push_back(line);
    }
    return lines;
  }
  QTreeWidgetItem* row(const std::string& identifier) const {
    const int at = pane_->rowOf(identifier);
    return at < 0 ? nullptr : pane_->view().topLevelItem(at);
  }
  std::vector<std::string> rowNames() const {
    std::vector<std::string> names;
    for (int at = 0; at < pane_->view().topLevelItemCount(); ++at)
      names.push_back(pane_->view().topLevelItem(at)->text(LayerPane::kNameColumn).toStdString());
    return names;
  }
  // Triggers the entry titled `title` of the row's context menu.
  void choose(const std::string& identifier, const QString& title) {
    std::unique_ptr<QMenu> menu = pane_->contextMenuFor(identifier);
    for (QAction* action : menu->actions()) {
      if (action->text() == title) {
        action->trigger();
        settle();
        return;
      }
    }
    ADD_FAILURE() << "no entry " << title.toStdString() << " for " << identifier;
  }
  std::vector<std::string> titles(const std::string& identifier) {
    std::vector<std::string> all;
    const std::unique_ptr<QMenu> menu = pane_->contextMenuFor(identifier);
    for (QAction* action : menu->actions()) {
      if (!action->isSeparator())
        all.push_back(action->text().toStdString());
    }
    return all;
  }
  // Presses the button of the open question titled `button`.
  void answer(const QString& button) {
    QMessageBox* dialog = pane_->confirmationDialog();
    ASSERT_NE(dialog, nullptr);
    for (QAbstractButton* each : dialog->buttons()) {
      if (each->text().remove('&') == button) {
        each->click();
        QCoreApplication::processEvents();
        return;
      }
    }
    ADD_FAILURE() << "no button " << button.toStdString();
  }

  editor::testing::TemporaryFolder folder_;
  std::filesystem::path journal_ = folder_ / "journal";
  editor::EditorConfiguration configuration_;
  editor::testing::ManualScheduler scheduler_;
  editor::InMemoryPreferencesStore preferences_;
  editor::InMemorySecretStore secrets_;
  editor::PosixProcessLauncher launcher_;
  editor::testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<editor::EditorModel> model_;
  std::unique_ptr<LayerPane> pane_;
};

TEST_F(LayerPaneTest, RowsListTheStackStrongestFirstAndMarkTheLayerThatReceivesEdits) {
  EXPECT_THAT(rowNames(), ElementsAre("scene", "ws", "a", "b", "ro"));
  // Nothing chosen before: the first editable layer below the root receives edits.
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "a.usda");
  EXPECT_EQ(row("a.usda")->text(LayerPane::kActiveColumn), "Editing");
  EXPECT_TRUE(row("a.usda")->font(LayerPane::kNameColumn).bold());
  EXPECT_EQ(row("b.usda")->text(LayerPane::kActiveColumn), "");

  choose("b.usda", "Make Active");
  EXPECT_EQ(model_->status.get(), "Editing b");
  EXPECT_EQ(row("b.usda")->text(LayerPane::kActiveColumn), "Editing");
  EXPECT_EQ(row("a.usda")->text(LayerPane::kActiveColumn), "");

  choose("ro.usda", "Make Active");
  EXPECT_EQ(model_->status.get(), "That layer is read-only");
  EXPECT_EQ(model_->scope.activeLayerIdentifier(), "b.usda");

  // The workspace's edit layer is never offered for editing or removal.
  EXPECT_THAT(titles("ws.usda"), ElementsAre("Add Layer\u2026", "Mute", "Move Up", "Move Down",
                                             "Merge Down\u2026", "Clear\u2026"));
  EXPECT_THAT(titles(""), ElementsAre("Add Layer\u2026"));
  EXPECT_THAT(commands(), IsEmpty()) << "the active layer is the editor's own choice";
}

TEST_F(LayerPaneTest, MuteBoxesAndMenuEntriesSendLayerOperationsOrSayWhyNot) {
  row("b.usda")->setCheckState(LayerPane::kNameColumn, Qt::Unchecked);
  EXPECT_EQ(model_->status.get(), "Publishing disable layer");
  EXPECT_EQ(row("b.usda")->checkState(LayerPane::kNameColumn), Qt::Unchecked)
      << "muted in the pane before the server answers";
  settle();
  EXPECT_EQ(row("b.usda")->checkState(LayerPane::kNameColumn), Qt::Checked)
      << "the stage that came back still has it enabled, and the pane follows the stage";

  row("scene.usda")->setCheckState(LayerPane::kNameColumn, Qt::Unchecked);
  EXPECT_EQ(model_->status.get(), "Root layer is always enabled");
  EXPECT_EQ(row("scene.usda")->checkState(LayerPane::kNameColumn), Qt::Checked)
      << "a refused toggle shows the truth again";

  choose("a.usda", "Move Down");
  choose("ro.usda", "Move Up");
  EXPECT_EQ(model_->status.get(), "Root layer cannot be moved");
  choose("ws.usda", "Mute");
  EXPECT_EQ(model_->status.get(), "Workspace edit layer is always enabled");
  choose("b.usda", "Merge Down\u2026");
  EXPECT_EQ(model_->status.get(), "No editable layer below to merge into");
  EXPECT_EQ(pane_->confirmationDialog(), nullptr) << "a refusal asks nothing";

  ASSERT_EQ(commands().size(), 2u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op mute b.usda true"));
  EXPECT_THAT(commands()[1], EndsWith("--layer-op move a.usda down"));
}

TEST_F(LayerPaneTest, RemoveClearAndMergeAskFirstAndGoOnlyOnConfirmation) {
  choose("a.usda", "Remove\u2026");
  QMessageBox* dialog = pane_->confirmationDialog();
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(dialog->windowTitle(), "Remove \"a\" Layer?");
  EXPECT_EQ(dialog->text(),
            "Remove \"a\" from the stack? The layer file will remain in the project.");
  answer("Cancel");
  EXPECT_EQ(pane_->confirmationDialog(), nullptr);
  EXPECT_FALSE(model_->layers.confirmation.get().has_value());
  EXPECT_THAT(commands(), IsEmpty());

  choose("a.usda", "Merge Down\u2026");
  ASSERT_NE(pane_->confirmationDialog(), nullptr);
  EXPECT_EQ(pane_->confirmationDialog()->text(),
            "Merge \"a\" down into \"b\"? \"a\" will be removed from the stack after its authored "
            "opinions are written into \"b\".");
  answer("Merge");
  settle();

  choose("scene.usda", "Clear\u2026");
  ASSERT_NE(pane_->confirmationDialog(), nullptr);
  EXPECT_EQ(pane_->confirmationDialog()->text(),
            "Remove authored root opinions from \"scene\"? The sublayer stack and layer state "
            "will be kept.");
  answer("Clear");
  settle();

  choose("b.usda", "Remove\u2026");
  answer("Remove");
  EXPECT_EQ(pane_->rowOf("b.usda"), -1) << "gone from the pane before the server answers";
  settle();

  ASSERT_EQ(commands().size(), 3u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op merge-down a.usda"));
  EXPECT_THAT(commands()[1], EndsWith("--layer-op clear scene.usda"));
  EXPECT_THAT(commands()[2], EndsWith("--layer-op remove b.usda"));
}

TEST_F(LayerPaneTest, AddingAskForANameAndADroppedRowMovesItsLayer) {
  std::optional<QString> typed = QString("  props ");
  pane_->askLayerName = [&] { return typed; };
  choose("", "Add Layer\u2026");
  typed = std::nullopt;  // the user cancels the second time
  choose("b.usda", "Add Layer\u2026");
  typed = QString(" ");
  choose("b.usda", "Add Layer\u2026");
  EXPECT_EQ(model_->status.get(), "Layer name required");

  QMimeData foreign;
  foreign.setText("b.usda");
  EXPECT_FALSE(pane_->dropLayer(foreign, 1)) << "only a layer row is accepted";

  QMimeData dragged;
  dragged.setData(LayerStackView::kLayerMimeType, "b.usda");
  EXPECT_TRUE(pane_->dropLayer(dragged, 0));
  EXPECT_THAT(rowNames(), ElementsAre("scene", "b", "ws", "a", "ro"))
      << "dropped on top, it lands just below the root";
  settle();

  ASSERT_EQ(commands().size(), 2u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op add props"));
  EXPECT_THAT(commands()[1], EndsWith("--layer-op move b.usda index:1"));
}

// A real drop event on the list: the row under the pointer says where the layer goes, and the
// list's own rows stay until the model answers.
TEST_F(LayerPaneTest, ADropEventOnTheListMovesTheDraggedLayer) {
  QTreeWidget& view = pane_->view();
  const QRect target = view.visualItemRect(row("ws.usda"));
  const QPoint upperHalf(target.center().x(), target.top() + 2);
  // What a drag does to the list: it enters, moves over the row and is dropped.
  auto drop = [&](const char* identifier) {
    QMimeData dragged;
    dragged.setData(LayerStackView::kLayerMimeType, identifier);
    QDragEnterEvent enter(upperHalf, Qt::MoveAction, &dragged, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(view.viewport(), &enter);
    QDragMoveEvent move(upperHalf, Qt::MoveAction, &dragged, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(view.viewport(), &move);
    QDropEvent dropped(QPointF(upperHalf), Qt::MoveAction, &dragged, Qt::LeftButton,
                       Qt::NoModifier);
    QCoreApplication::sendEvent(view.viewport(), &dropped);
  };
  drop("ro.usda");
  EXPECT_EQ(model_->status.get(), "Root layer cannot be moved") << "a read-only layer stays";
  EXPECT_THAT(rowNames(), ElementsAre("scene", "ws", "a", "b", "ro"));

  drop("b.usda");
  EXPECT_THAT(rowNames(), ElementsAre("scene", "b", "ws", "a", "ro"));
  settle();
  ASSERT_EQ(commands().size(), 1u);
  EXPECT_THAT(commands()[0], EndsWith("--layer-op move b.usda index:1"));
}

TEST(LayerDropRow, ThePointersHalfOfARowChoosesBeforeOrAfterIt) {
  EXPECT_EQ(layerDropRow(2, false, 5), 2);
  EXPECT_EQ(layerDropRow(2, true, 5), 3);
  EXPECT_EQ(layerDropRow(-1, false, 5), 4) << "below the rows: the bottom";
  EXPECT_EQ(layerDropRow(-1, false, 0), 0);
}

}  // namespace
}  // namespace orvan::ui
