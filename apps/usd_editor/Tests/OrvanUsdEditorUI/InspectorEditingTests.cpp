// Editing through the inspector's controls: typed and scrubbed numbers, one axis of a vector, the
// colour dialog, invalid text, mixed values on a multi-selection, the component header and "Add
// Component", override marks, the material picker and a refusal; against the scripted fake edit
// helper on real pipes, on virtual time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QTest>
#include <QToolButton>

#include <fstream>
#include <sstream>

#include "Application/EditorModel.h"
#include "Authoring/PropertyDrafts.h"
#include "Inspector/InspectorPane.h"
#include "Inspector/PropertyEditors.h"
#include "Inspector/Scrubber.h"
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
using ::testing::IsEmpty;
using namespace std::chrono_literals;

editor::ComponentProperty property(std::string name, std::string kind, std::string value) {
  editor::ComponentProperty each;
  each.name = std::move(name);
  each.kind = std::move(kind);
  each.value = std::move(value);
  return each;
}

editor::UsdComponent renderShape(std::string color, std::string dimensions, bool overridden) {
  editor::UsdComponent shape;
  shape.type = "RenderShape";
  editor::ComponentProperty radius = property("radius", "number", "0.5");
  radius.min = 0;
  radius.max = 10;
  radius.step = 0.5;
  radius.unit = "m";
  radius.overridden = overridden;
  radius.overrideLayerName = overridden ? "session" : "";
  editor::ComponentProperty mode = property("mode", "string", "solid");
  mode.options = {{"solid", "Solid"}, {"wire", "Wireframe"}};
  shape.properties = {property("color", "color", std::move(color)),
                      property("dimensions", "vector3", std::move(dimensions)), radius,
                      property("castShadows", "bool", "true"), mode};
  return shape;
}

editor::UsdComponent light() {
  editor::UsdComponent each;
  each.type = "Light";
  each.properties = {property("intensity", "number", "1")};
  return each;
}

// /World with shapes A (its radius overridden) and B, which differ in colour and in the Y of their
// dimensions.
editor::StageInspection inspectorStage() {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  editor::UsdPrimNode world;
  world.path = "/World";
  world.name = "World";
  world.parent = "/";
  auto add = [&](const std::string& path, std::vector<editor::UsdComponent> components) {
    editor::UsdPrimDetail each;
    each.path = path;
    each.name = path.substr(path.rfind('/') + 1);
    each.parent = path == "/World" ? "/" : "/World";
    each.entityPath = path;
    each.components = std::move(components);
    stage.prims.push_back(each);
    if (path != "/World") {
      editor::UsdPrimNode node;
      node.path = path;
      node.name = each.name;
      node.parent = "/World";
      world.children.push_back(node);
    }
  };
  editor::UsdComponent binding;
  binding.type = "MaterialBinding";
  binding.properties = {property("material", "material", "")};
  add("/World", {binding});
  add("/World/A", {renderShape("1,0,0", "1,1,1", true)});
  editor::UsdAttribute tint;
  tint.name = "orvan:tint";
  tint.type = "float";
  tint.value = "0.5";
  tint.overridden = true;
  tint.overrideLayerName = "stronger";
  stage.prims.back().attributes = {tint};
  add("/World/B", {renderShape("0,1,0", "1,2,1", false)});
  stage.rootPrims.push_back(world);
  stage.catalog = {light(), renderShape("1,1,1", "1,1,1", false)};
  for (const char* path :
       {"/World/OrvanAssets/Red", "/World/OrvanAssets/Rock", "/Elsewhere/Blue"}) {
    editor::UsdAsset asset;
    asset.path = path;
    asset.name = asset.path.substr(asset.path.rfind('/') + 1);
    asset.kind = asset.name == "Rock" ? "mesh" : "material";
    stage.assets.push_back(asset);
  }
  return stage;
}

class InspectorEditingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.editClientPath = ORVAN_FAKE_EDIT_CLIENT_PATH;
    configuration_.clientId = journal_.string();
    configuration_.scenePath = folder_.write("scene.usda", encodeJson(inspectorStage())).string();
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
    ASSERT_EQ(model_->currentStage().prims.size(), 3u) << model_->status.get();
    model_->revision.set(0);
    statusWatch_ =
        model_->status.subscribe([this](const std::string& text) { statuses_.push_back(text); });
    pane_ = std::make_unique<InspectorPane>(*model_);
    pane_->resize(420, 700);
    pane_->show();
    QApplication::setActiveWindow(pane_.get());
  }

  // The stage the fake inspector gives from now on.
  void serve(const editor::StageInspection& stage) {
    folder_.write("scene.usda", encodeJson(stage));
  }
  void settle() {
    for (int round = 0; round < 4; ++round) {
      scheduler_.runUntilQuiet();
      QCoreApplication::processEvents();
    }
  }
  // Moves virtual time on in steps, letting helper replies and the pane's updates land.
  void wait(editor::Duration total, editor::Duration step = 5ms) {
    for (editor::Duration done{}; done < total; done += step) {
      scheduler_.advanceBy(step);
      settle();
    }
  }
  void select(std::vector<std::string> paths) {
    model_->documents.selectPrims(paths.front(), paths);
    settle();
  }
  void script(std::initializer_list<std::string> answers) {
    std::ofstream out(folder_ / "journal.script", std::ios::app);
    for (const std::string& answer : answers)
      out << answer << '\n';
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

  PropertyEditor* editorOf(const std::string& name, const std::string& type = "RenderShape") {
    return pane_->editorFor(type, name);
  }
  template <class Widget>
  Widget* part(const std::string& name, const char* objectName, int index = 0) {
    PropertyEditor* owner = editorOf(name);
    if (!owner)
      return nullptr;
    const auto all = owner->findChildren<Widget*>(objectName);
    return index < all.size() ? all[index] : nullptr;
  }
  QLabel* nameLabel(const QString& name) {
    for (QLabel* label : pane_->findChildren<QLabel*>("PropertyName")) {
      if (label->property("plainName") == name)
        return label;
    }
    return nullptr;
  }
  void type(QLineEdit* field, const QString& text) {
    field->setFocus();
    field->selectAll();
    QTest::keyClicks(field, text);
    settle();
  }
  void enter(QLineEdit* field) {
    QTest::keyClick(field, Qt::Key_Return);
    settle();
  }
  static void mouse(QWidget* target, QEvent::Type kind, double x,
                    Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    const QPointF local(x, 4);
    const Qt::MouseButton button = kind == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    const Qt::MouseButtons held =
        kind == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(Qt::LeftButton);
    QMouseEvent event(kind, local, target->mapToGlobal(local), button, held, modifiers);
    QCoreApplication::sendEvent(target, &event);
  }
  static QAction* action(QMenu* menu, const char* name) {
    for (QAction* each : menu->actions()) {
      if (each->objectName() == name)
        return each;
    }
    return nullptr;
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
  std::vector<std::string> statuses_;
  editor::Subscription statusWatch_;
  std::unique_ptr<InspectorPane> pane_;
};

TEST_F(InspectorEditingTest, ATypedNumberCommitsOnEnterHeldToItsRangeWhileTheFieldStaysAlive) {
  select({"/World/A"});
  QLineEdit* field = part<QLineEdit>("radius", "NumberField");
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->text(), "0.5");
  EXPECT_EQ(editorOf("radius")->shownText(), "0.5 m") << "the record's unit";
  const int layouts = pane_->layoutCount();
  QPointer<QLineEdit> alive(field);

  type(field, "2.5");
  EXPECT_EQ(field->text(), "2.5") << "refreshes leave a field being typed in alone";
  EXPECT_THAT(commands(), IsEmpty()) << "typing previews, Enter commits";
  enter(field);
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t2.5"));

  type(field, "50");
  enter(field);
  settle();
  EXPECT_EQ(commands().back(), "component\t1\tset\t/World/A\tRenderShape\tradius\t10")
      << "the record's maximum";
  EXPECT_TRUE(alive) << "the editor was updated in place, not rebuilt";
  EXPECT_EQ(pane_->layoutCount(), layouts);
}

TEST_F(InspectorEditingTest, AScrubOnTheLabelStepsClampsAndEndsAsOneOperationPerPause) {
  EXPECT_DOUBLE_EQ(scrubbedValue(1, 4, Qt::NoModifier, {0.5, {}, {}}), 3);
  EXPECT_DOUBLE_EQ(scrubbedValue(1, 4, Qt::ShiftModifier, {0.5, {}, {}}), 21);
  EXPECT_DOUBLE_EQ(scrubbedValue(1, 4, Qt::ControlModifier, {0.5, {}, {}}), 1.2);
  EXPECT_DOUBLE_EQ(scrubbedValue(1, -40, Qt::NoModifier, {0.5, 0.0, 10.0}), 0);

  select({"/World/A"});
  QLabel* label = nameLabel("radius");
  QLineEdit* field = part<QLineEdit>("radius", "NumberField");
  ASSERT_NE(label, nullptr);
  ASSERT_NE(field, nullptr);
  const int layouts = pane_->layoutCount();

  mouse(label, QEvent::MouseButtonPress, 10);
  for (int x = 11; x <= 14; ++x) {
    mouse(label, QEvent::MouseMove, x);
    settle();
  }
  EXPECT_EQ(field->text(), "2.5") << "0.5 and four pixels of 0.5";
  mouse(label, QEvent::MouseMove, 18, Qt::ShiftModifier);
  settle();
  EXPECT_EQ(field->text(), "10") << "held at the maximum";
  mouse(label, QEvent::MouseMove, 12, Qt::ControlModifier);
  settle();
  EXPECT_EQ(field->text(), "0.6");
  EXPECT_THAT(commands(), IsEmpty()) << "no pause, nothing sent";
  mouse(label, QEvent::MouseButtonRelease, 12);
  settle();
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t0.6"));
  wait(60ms);
  EXPECT_EQ(commands().size(), 1u) << "the release replaced the pending commit";

  // A pause of 40 ms in the middle of a drag commits once; the release commits the end.
  const double start = field->text().toDouble();
  mouse(label, QEvent::MouseButtonPress, 0);
  mouse(label, QEvent::MouseMove, 2);
  wait(50ms);
  mouse(label, QEvent::MouseMove, 4);
  settle();
  mouse(label, QEvent::MouseButtonRelease, 4);
  wait(60ms);
  const std::vector<std::string> all = commands();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1],
            "component\t1\tset\t/World/A\tRenderShape\tradius\t" + editor::formatNumber(start + 1));
  EXPECT_EQ(all[2],
            "component\t2\tset\t/World/A\tRenderShape\tradius\t" + editor::formatNumber(start + 2));
  EXPECT_EQ(pane_->layoutCount(), layouts) << "a drag never lays the pane out again";
}

TEST_F(InspectorEditingTest, OneAxisOfAVectorAndTheColourDialog) {
  select({"/World/A"});
  QLineEdit* y = part<QLineEdit>("dimensions", "VectorField", 1);
  ASSERT_NE(y, nullptr);
  EXPECT_EQ(editorOf("dimensions")->shownText(), "1 1 1");
  type(y, "4");
  enter(y);
  EXPECT_THAT(commands(),
              ElementsAre("component\t0\tset\t/World/A\tRenderShape\tdimensions\t1,4,1"));

  auto* swatch = part<QToolButton>("color", "ColorSwatch");
  ASSERT_NE(swatch, nullptr);
  swatch->click();
  settle();
  auto* dialog = editorOf("color")->findChild<QColorDialog*>();
  ASSERT_NE(dialog, nullptr) << "the swatch opens a colour dialog";
  EXPECT_EQ(dialog->currentColor(), QColor::fromRgbF(1, 0, 0));
  dialog->setCurrentColor(QColor::fromRgbF(0, 0, 1));
  dialog->setCurrentColor(QColor::fromRgbF(0, 1, 1));
  settle();
  EXPECT_EQ(commands().size(), 1u) << "colours are debounced";
  wait(50ms);
  EXPECT_EQ(commands().back(), "component\t1\tset\t/World/A\tRenderShape\tcolor\t0,1,1");
  dialog->reject();
  wait(50ms);
  EXPECT_EQ(commands().back(), "component\t2\tset\t/World/A\tRenderShape\tcolor\t1,0,0")
      << "cancelling the dialog puts the colour back";
}

TEST_F(InspectorEditingTest, InvalidTextIsKeptAndMarkedAndNeverSent) {
  select({"/World/A"});
  QLineEdit* radius = part<QLineEdit>("radius", "NumberField");
  ASSERT_NE(radius, nullptr);
  type(radius, "12abc");
  EXPECT_TRUE(editorOf("radius")->isInvalid()) << "marked while typing";
  enter(radius);
  EXPECT_EQ(model_->status.get(), "Waiting for valid number value");
  EXPECT_EQ(radius->text(), "12abc") << "the draft stays";
  EXPECT_TRUE(editorOf("radius")->isInvalid());

  QLineEdit* x = part<QLineEdit>("dimensions", "VectorField", 0);
  ASSERT_NE(x, nullptr);
  type(x, "1,2");
  enter(x);
  EXPECT_EQ(model_->status.get(), "Waiting for valid vector3 value");
  EXPECT_TRUE(editorOf("dimensions")->isInvalid());
  EXPECT_EQ(x->text(), "1,2");

  wait(100ms);
  EXPECT_THAT(commands(), IsEmpty());

  // A corrected value clears the mark and goes out.
  type(radius, "3");
  enter(radius);
  EXPECT_FALSE(editorOf("radius")->isInvalid());
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tradius\t3"));
}

TEST_F(InspectorEditingTest, AnOptionOutsideTheRecordIsShownMarkedAndCannotBeChosen) {
  editor::StageInspection stage = inspectorStage();
  stage.prims[1].components[0].properties[4].value = "sketch";
  serve(stage);
  model_->stageRefresher.refresh();
  settle();
  select({"/World/A"});
  auto* menu = part<QComboBox>("mode", "OptionMenu");
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(editorOf("mode")->shownText(), "sketch");
  EXPECT_TRUE(editorOf("mode")->isInvalid());
  ASSERT_EQ(menu->count(), 2) << "only the record's options";
  menu->activated(1);
  wait(50ms);
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World/A\tRenderShape\tmode\twire"));
}

TEST_F(InspectorEditingTest, AMultiSelectionShowsMixedValuesAndEditsEveryEntity) {
  select({"/World/A", "/World/B"});
  EXPECT_EQ(editorOf("color")->shownText(), "Mixed");
  EXPECT_EQ(editorOf("radius")->shownText(), "0.5 m") << "equal values are not mixed";
  EXPECT_EQ(editorOf("dimensions")->shownText(), "1 Mixed 1") << "mixed per axis";
  EXPECT_EQ(editorOf("castShadows")->shownText(), "On");

  // Setting X keeps each entity's own Y.
  QLineEdit* x = part<QLineEdit>("dimensions", "VectorField", 0);
  ASSERT_NE(x, nullptr);
  type(x, "3");
  enter(x);
  settle();
  EXPECT_THAT(commands(),
              ElementsAre("component\t0\tset\t/World/A\tRenderShape\tdimensions\t3,1,1",
                          "component\t1\tset\t/World/B\tRenderShape\tdimensions\t3,2,1"));

  type(part<QLineEdit>("radius", "NumberField"), "2");
  enter(part<QLineEdit>("radius", "NumberField"));
  const std::vector<std::string> all = commands();
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[2], "component\t2\tset\t/World/A\tRenderShape\tradius\t2");
  EXPECT_EQ(all[3], "component\t3\tset\t/World/B\tRenderShape\tradius\t2");

  // A mixed check box becomes one value for both.
  model_->propertyDrafts.updateDraftSnapshot({"/World/B"}, "RenderShape", "castShadows", "false");
  settle();
  EXPECT_EQ(editorOf("castShadows")->shownText(), "Mixed");
  auto* check = part<QCheckBox>("castShadows", "ValueCheck");
  ASSERT_NE(check, nullptr);
  EXPECT_EQ(check->checkState(), Qt::PartiallyChecked);
  check->click();
  wait(50ms);
  const std::vector<std::string> after = commands();
  ASSERT_EQ(after.size(), 6u);
  EXPECT_EQ(after[4], "component\t4\tset\t/World/A\tRenderShape\tcastShadows\ttrue");
  EXPECT_EQ(after[5], "component\t5\tset\t/World/B\tRenderShape\tcastShadows\ttrue");
}

TEST_F(InspectorEditingTest, TheComponentHeaderAndAddComponentFanOutOverTheSelection) {
  select({"/World/A", "/World/B"});
  QMenu* add = pane_->addComponentMenu();
  ASSERT_NE(add, nullptr);
  ASSERT_EQ(add->actions().size(), 1) << "the catalogue less what every entity holds";
  EXPECT_EQ(add->actions()[0]->text(), "Light");
  add->actions()[0]->trigger();
  settle();
  EXPECT_THAT(commands(), ElementsAre("component\t0\tadd\t/World/A\tLight",
                                      "component\t1\tadd\t/World/B\tLight"));
  ASSERT_NE(pane_->editorFor("Light", "intensity"), nullptr) << "the new component shows";

  QCheckBox* enabled = pane_->enableSwitchFor("RenderShape");
  ASSERT_NE(enabled, nullptr);
  enabled->click();
  settle();
  QMenu* menu = pane_->componentMenuFor("RenderShape");
  ASSERT_NE(menu, nullptr);
  menu->aboutToShow();
  EXPECT_FALSE(action(menu, "moveUp")->isEnabled()) << "already first";
  EXPECT_TRUE(action(menu, "moveDown")->isEnabled());
  EXPECT_FALSE(action(menu, "paste")->isEnabled()) << "nothing copied";
  EXPECT_TRUE(action(menu, "reset")->isEnabled()) << "A's radius is overridden";
  action(menu, "moveDown")->trigger();
  settle();
  action(menu, "copy")->trigger();
  EXPECT_EQ(model_->status.get(), "Copied RenderShape; select another object to paste it");
  menu->aboutToShow();
  EXPECT_TRUE(action(menu, "paste")->isEnabled());
  action(menu, "remove")->trigger();
  settle();

  std::vector<std::string> all = commands();
  ASSERT_EQ(all.size(), 8u);
  EXPECT_EQ(all[2], "component\t2\tenable\t/World/A\tRenderShape\tfalse");
  EXPECT_EQ(all[3], "component\t3\tenable\t/World/B\tRenderShape\tfalse");
  EXPECT_EQ(all[4], "component\t4\treorder\t/World/A\tRenderShape\tLight,RenderShape");
  EXPECT_EQ(all[5], "component\t5\treorder\t/World/B\tRenderShape\tLight,RenderShape");
  EXPECT_EQ(all[6], "component\t6\tremove\t/World/A\tRenderShape");
  EXPECT_EQ(all[7], "component\t7\tremove\t/World/B\tRenderShape");
  EXPECT_EQ(pane_->editorFor("RenderShape", "radius"), nullptr) << "removed at once";
}

TEST_F(InspectorEditingTest, AnOverrideShowsItsMarkAndResets) {
  select({"/World/B"});
  ASSERT_NE(pane_->overrideMarkFor("RenderShape", "radius"), nullptr);
  EXPECT_TRUE(pane_->overrideMarkFor("RenderShape", "radius")->isHidden());
  select({"/World/A"});
  QToolButton* mark = pane_->overrideMarkFor("RenderShape", "radius");
  ASSERT_NE(mark, nullptr);
  EXPECT_FALSE(mark->isHidden());
  EXPECT_THAT(mark->toolTip().toStdString(), ::testing::HasSubstr("session"));
  EXPECT_TRUE(pane_->overrideMarkFor("RenderShape", "color")->isHidden());
  mark->click();
  settle();
  EXPECT_THAT(commands(), ElementsAre("component\t0\treset\t/World/A\tRenderShape\tradius"));

  // A raw attribute's mark resets it in the layer too.
  QToolButton* attributeMark = nullptr;
  for (QToolButton* each : pane_->findChildren<QToolButton*>("OverrideMark")) {
    if (each->toolTip().contains("stronger"))
      attributeMark = each;
  }
  ASSERT_NE(attributeMark, nullptr);
  attributeMark->click();
  settle();
  ASSERT_EQ(commands().size(), 2u);
  EXPECT_THAT(commands().back(), ::testing::StartsWith("usd-property\t1\treset\t/World/A\t"));
  EXPECT_THAT(commands().back(), ::testing::HasSubstr("orvan:tint"));
}

TEST_F(InspectorEditingTest, TheMaterialPickerOffersTheProjectsMaterialsAndShowsTheWait) {
  select({"/World"});
  PropertyEditor* picker = pane_->editorFor("MaterialBinding", "material");
  ASSERT_NE(picker, nullptr);
  auto* menu = picker->findChild<QComboBox*>("AssetPicker");
  ASSERT_NE(menu, nullptr);
  ASSERT_EQ(menu->count(), 1) << "project materials only: no mesh, nothing outside the project";
  EXPECT_EQ(menu->itemText(0), "Red");
  EXPECT_EQ(picker->shownText(), "None");
  menu->activated(0);
  settle();
  EXPECT_FALSE(picker->findChild<QLabel*>("ResolvingMark")->isHidden())
      << "the server has not resolved the pointer yet";
  EXPECT_EQ(picker->shownText(), "Red");
  wait(50ms);
  EXPECT_THAT(commands(), ElementsAre("component\t0\tset\t/World\tMaterialBinding\tmaterial\t"
                                      "asset:/World/OrvanAssets/Red"));
}

TEST_F(InspectorEditingTest, ARefusedEditReturnsToTheServersValueWithTheStatus) {
  select({"/World/A"});
  script({R"({"accepted":false,"revision":0,"message":"locked"})"});
  QLineEdit* field = part<QLineEdit>("radius", "NumberField");
  ASSERT_NE(field, nullptr);
  type(field, "7");
  enter(field);
  wait(20ms);
  EXPECT_EQ(model_->status.get(), "Live edit rejected: locked");
  EXPECT_EQ(field->text(), "0.5");
}

}  // namespace
}  // namespace orvan::ui
