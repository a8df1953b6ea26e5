// The viewport in the window, over a real model on virtual time: the host's children are scripted,
// the model's stage comes from the fake inspector, and the Qt event loop runs the view.
#include <QAbstractButton>
#include <QLineEdit>
#include <QSplitter>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Application/EditorModel.h"
#include "EditorWindow.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/ProcessLauncher.h"
#include "Platform/SecretStore.h"
#include "Platform/SharedSurfaceLookup.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/StageBuilders.h"
#include "Support/TemporaryFolder.h"
#include "Viewport/RuntimeViewport.h"
#include "Viewport/RuntimeViewportContainerView.h"
#include "Viewport/ViewportToolStrip.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::ui {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// The viewport's two children, spoken for by the test: what the host writes is kept, what the
// child would print is handed to the host's line handler.
struct ScriptedChild {
  editor::ProcessLaunchOptions options;
  bool running = true;
  bool stdinClosed = false;
  std::string stdinBytes;

  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (std::size_t end; (end = stdinBytes.find('\n', start)) != std::string::npos;
         start = end + 1)
      out.push_back(stdinBytes.substr(start, end - start));
    return out;
  }
  void emitStdout(const std::string& line) { options.standardOutput.onLine({line, false, false}); }
};

class ScriptedChildProcess final : public editor::ChildProcess {
 public:
  explicit ScriptedChildProcess(std::shared_ptr<ScriptedChild> child) : child_(std::move(child)) {}
  int processId() const override { return 4242; }
  editor::Status writeStdin(std::string_view bytes) override {
    if (child_->stdinClosed)
      return editor::Error::editor(32, "Broken pipe");
    child_->stdinBytes.append(bytes);
    return editor::okStatus();
  }
  void closeStdin() override { child_->stdinClosed = true; }
  editor::Result<std::string> readStdout(std::size_t) override { return std::string(); }
  std::string capturedStdout() const override { return {}; }
  std::string capturedStderr() const override { return {}; }
  bool isRunning() const override { return child_->running; }
  editor::ExitStatus waitForExit() override { return editor::ExitStatus::exited(0); }
  std::optional<editor::ExitStatus> exitStatus() const override { return std::nullopt; }
  void terminate(Duration) override { child_->running = false; }

 private:
  std::shared_ptr<ScriptedChild> child_;
};

class ScriptedLauncher final : public editor::ProcessLauncher {
 public:
  std::vector<std::shared_ptr<ScriptedChild>> launched;

  editor::Result<std::unique_ptr<editor::ChildProcess>> launch(
      editor::ProcessLaunchOptions options) override {
    auto child = std::make_shared<ScriptedChild>();
    child->options = std::move(options);
    launched.push_back(child);
    return std::unique_ptr<editor::ChildProcess>(std::make_unique<ScriptedChildProcess>(child));
  }
  editor::Result<editor::ProcessOutput> runToCompletion(editor::ProcessLaunchOptions) override {
    return editor::Error::editor(kLaunchFailedCode, "not used");
  }
  bool isExecutableFile(const std::string&) const override { return true; }
  std::vector<std::shared_ptr<ScriptedChild>> startedFrom(const std::string& path) const {
    std::vector<std::shared_ptr<ScriptedChild>> out;
    for (const auto& child : launched) {
      if (child->options.executablePath == path)
        out.push_back(child);
    }
    return out;
  }
};

// Grey surfaces by identifier.
class GreySurfaces final : public editor::SharedSurfaceLookup {
 public:
  void add(std::uint32_t id, std::uint32_t width, std::uint32_t height) {
    pixels_.emplace_back(std::size_t{width} * height * 4, std::uint8_t{0x80});
    surfaces_[id] = std::make_shared<editor::SharedSurface>(
        editor::SharedSurface{id, width, height, width * 4, pixels_.back().data()});
  }
  std::shared_ptr<const editor::SharedSurface> lookup(std::uint32_t id) override {
    const auto found = surfaces_.find(id);
    return found == surfaces_.end() ? nullptr : found->second;
  }

 private:
  std::map<std::uint32_t, std::shared_ptr<const editor::SharedSurface>> surfaces_;
  std::vector<std::vector<std::uint8_t>> pixels_;
};

class InlineExecutor final : public editor::BackgroundExecutor {
 public:
  void post(editor::Closure closure) override { closure(); }
};

constexpr const char* kRuntime = "/opt/orvan/orvan_runtime_viewport";
constexpr const char* kClient = "/opt/orvan/orvan_viewport_client";

// /World with A and B, B an instance root.
editor::StageInspection twoPrimStage() {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  editor::UsdPrimNode world = editor::testing::makePrimNode("/World");
  world.children = {editor::testing::makePrimNode("/World/A"),
                    editor::testing::makePrimNode("/World/B")};
  stage.rootPrims.push_back(world);
  editor::testing::addPrimDetail(stage, "/World");
  editor::testing::addPrimDetail(stage, "/World/A");
  editor::testing::addPrimDetail(stage, "/World/B").instanceable = true;
  return stage;
}

class RuntimeViewportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.localMode = true;
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.viewportPath = kRuntime;
    configuration_.viewportClientPath = kClient;
    configuration_.scenePath = folder_.write("scene.usda", encodeJson(twoPrimStage())).string();
    model_ = std::make_unique<editor::EditorModel>(
        configuration_, editor::EditorModelPorts{scheduler_, scheduler_.background(), preferences_,
                                                 secrets_, processes_, http_});
    model_->stageRefresher.refresh();
    scheduler_.runUntilQuiet();

    editor::RuntimeViewportHostOptions options;
    options.log = [](std::string_view) {};
    options.inputQueue = &inputQueue_;
    options.parentProcessId = 777;
    options.environmentLookup = [](const std::string&) { return std::nullopt; };
    window_ = std::make_unique<QWidget>();
    window_->resize(400, 300);
    viewport_ =
        std::make_unique<RuntimeViewport>(*model_, launcher_, surfaces_, window_.get(), options);
    viewport_->view().setGeometry(0, 0, 400, 300);
  }
  void TearDown() override {
    viewport_.reset();
    window_.reset();
  }

  // Qt's queued work and the model's, in turns.
  void settle() {
    for (int turn = 0; turn < 3; ++turn) {
      QCoreApplication::processEvents();
      scheduler_.runUntilQuiet();
    }
  }
  // Shows the window; the runtime starts, says it listens, and the client opens the scene.
  std::shared_ptr<ScriptedChild> openClient() {
    window_->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    settle();
    const auto runtimes = launcher_.startedFrom(kRuntime);
    EXPECT_EQ(runtimes.size(), 1u);
    if (runtimes.empty())
      return nullptr;
    runtimes.front()->emitStdout("Viewport server listening");
    settle();
    const auto clients = launcher_.startedFrom(kClient);
    EXPECT_EQ(clients.size(), 1u);
    return clients.empty() ? nullptr : clients.front();
  }

  editor::testing::TemporaryFolder folder_;
  editor::EditorConfiguration configuration_;
  editor::testing::ManualScheduler scheduler_;
  editor::InMemoryPreferencesStore preferences_;
  editor::InMemorySecretStore secrets_;
  editor::PosixProcessLauncher processes_;
  editor::testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<editor::EditorModel> model_;
  ScriptedLauncher launcher_;
  GreySurfaces surfaces_;
  InlineExecutor inputQueue_;
  std::unique_ptr<QWidget> window_;
  std::unique_ptr<RuntimeViewport> viewport_;
};

TEST_F(RuntimeViewportTest, TheModelsStateReachesTheViewportAndItsAnswersReachTheModel) {
  model_->documents.selectPrims("/World/A", {"/World/A"});
  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.transformTool = editor::ViewportTransformTool::rotate;
    state.controls.transformSpace = editor::ViewportTransformSpace::local;
  });
  EXPECT_EQ(viewport_->view().reasonText(), QString::fromUtf8("Viewport starting\u2026"));
  const auto client = openClient();
  ASSERT_TRUE(client);
  const std::vector<std::string> opening = client->lines();
  ASSERT_FALSE(opening.empty());
  EXPECT_THAT(opening.front(), HasSubstr("open|" + configuration_.scenePath + "||"));
  EXPECT_THAT(opening, Contains("tool|rotate|local"));
  EXPECT_THAT(opening, Contains("selection|/World/A"));
  EXPECT_THAT(opening, Contains("instanced-prims|/World/B"));

  // A selection in the hierarchy goes to the viewport...
  model_->documents.selectPrims("/World/B", {"/World/B", "/World/A"});
  settle();
  EXPECT_EQ(client->lines().back(), "selection|/World/B|/World/A");
  // ...and one made in the viewport selects in the hierarchy.
  client->emitStdout(R"({"type":"selection","entityPaths":["/World/A"]})");
  settle();
  EXPECT_EQ(model_->session.sceneSelection.get().paths, std::vector<std::string>{"/World/A"});
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/A");

  // A frame: shown, the reason goes, the surface is acknowledged once it was copied.
  surfaces_.add(7, 40, 30);
  client->emitStdout(R"({"type":"frame","frameIndex":1,"surfaceId":7,"widthPx":40,"heightPx":30})");
  settle();
  ASSERT_TRUE(testing::processEventsUntil(
      [&] {
        scheduler_.runUntilQuiet();
        const auto lines = client->lines();
        return std::find(lines.begin(), lines.end(), "frame-ack|1|7") != lines.end();
      },
      2000));
  EXPECT_TRUE(viewport_->view().hasFrame());
  EXPECT_EQ(viewport_->view().renderedImage().pixel(200, 150), 0x80808080u | 0xff000000u);
  EXPECT_TRUE(viewport_->view().reasonText().isEmpty());

  // The end of a gizmo drag becomes a transform commit of the model.
  client->emitStdout(
      R"({"type":"transformCommit","entityPath":"/World/A","propertyName":"translation",)"
      R"("values":[1,2,3],"previewSessionId":"s1","final":true,"duplicateRequested":false})");
  settle();
  EXPECT_TRUE(model_->viewportGizmo.lastViewportTransformActivity.has_value());
  EXPECT_EQ(model_->propertyDrafts.drafts.get().at("/World/A").at("Transform|translation"),
            "1,2,3");
}

TEST_F(RuntimeViewportTest, InputAndPreviewsGoOutAndAGameCameraLeavesTheWheelAlone) {
  const auto client = openClient();
  ASSERT_TRUE(client);
  QTest::mousePress(&viewport_->view(), Qt::LeftButton, Qt::AltModifier, QPoint(100, 100));
  QTest::mouseRelease(&viewport_->view(), Qt::LeftButton, Qt::AltModifier, QPoint(100, 100));
  QWheelEvent notch(QPointF(5, 5), QPointF(5, 5), QPoint(), QPoint(0, 120), Qt::NoButton,
                    Qt::NoModifier, Qt::NoScrollPhase, false);
  QCoreApplication::sendEvent(&viewport_->view(), &notch);
  settle();
  const double scale = viewport_->view().devicePixelRatioF();
  auto pixel = [&](double points) { return editor::formatViewportReal(points * scale); };
  const std::vector<std::string> lines = client->lines();
  EXPECT_THAT(lines, Contains("down|" + pixel(100) + "|" + pixel(200) + "|0|4"));
  EXPECT_THAT(lines, Contains("up|" + pixel(100) + "|" + pixel(200) + "|0|4"));
  EXPECT_THAT(lines, Contains("gesture|zoom|0.0|-18.0"));

  model_->propertyDrafts.publishViewportPropertyPreview({"/World/A"}, "Light", "intensity", "3");
  settle();
  EXPECT_EQ(client->lines().back(), "property-preview|/World/A|Light|intensity|3|0");

  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.cameraMode = editor::ViewportCameraMode::game;
  });
  settle();
  EXPECT_EQ(client->lines().back(), "camera|game");
  QWheelEvent ignored(QPointF(5, 5), QPointF(5, 5), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
  QCoreApplication::sendEvent(&viewport_->view(), &ignored);
  EXPECT_FALSE(ignored.isAccepted());
  settle();
  EXPECT_EQ(client->lines().back(), "camera|game");

  viewport_->shutdown();
  EXPECT_EQ(client->lines().back(), "close");
  EXPECT_TRUE(client->stdinClosed);
}

TEST_F(RuntimeViewportTest, AnEmptyViewportSaysWhy) {
  EXPECT_EQ(viewportReasonText(*model_, false), QString::fromUtf8("Viewport starting\u2026"));
  EXPECT_TRUE(viewportReasonText(*model_, true).isEmpty());
  model_->scope.current.update([](editor::SharedClientScope& place) { place.scene = " "; });
  EXPECT_EQ(viewportReasonText(*model_, false), "No scene open");
  EXPECT_FALSE(runtimeViewportState(*model_).sceneLoading) << "a local editor never waits";
}

TEST_F(RuntimeViewportTest, TheWindowPutsTheViewportBetweenThePanes) {
  EditorWindow window(*model_);
  window.showRuntimeViewport(launcher_, surfaces_);
  ASSERT_NE(window.runtimeViewport(), nullptr);
  EXPECT_EQ(window.viewportPane(), &window.runtimeViewport()->view());
  // Three columns: the hierarchy's (with the layers under it), the viewport's, the inspector.
  const auto* columns = qobject_cast<const QSplitter*>(window.inspectorPane()->parentWidget());
  ASSERT_NE(columns, nullptr);
  ASSERT_EQ(columns->count(), 3);
  EXPECT_TRUE(columns->widget(0)->isAncestorOf(window.hierarchyPane()));
  EXPECT_TRUE(columns->widget(1)->isAncestorOf(window.viewportPane()));
  EXPECT_EQ(columns->widget(2), window.inspectorPane());
}

TEST_F(RuntimeViewportTest, TheToolStripShowsAndSetsTheGizmo) {
  ViewportToolStrip& strip = viewport_->toolStrip();
  EXPECT_EQ(strip.parentWidget(), &viewport_->view());
  EXPECT_EQ(strip.pos(), QPoint(8, 8)) << "over the top-left corner";
  auto tool = [&] { return model_->session.viewport.get().controls.transformTool; };
  auto space = [&] { return model_->session.viewport.get().controls.transformSpace; };
  EXPECT_TRUE(strip.toolButton(editor::ViewportTransformTool::translate)->isChecked());

  // A change made elsewhere shows...
  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.transformTool = editor::ViewportTransformTool::rotate;
    state.controls.transformSpace = editor::ViewportTransformSpace::local;
  });
  EXPECT_TRUE(strip.toolButton(editor::ViewportTransformTool::rotate)->isChecked());
  EXPECT_FALSE(strip.toolButton(editor::ViewportTransformTool::translate)->isChecked());
  EXPECT_TRUE(strip.spaceButton()->isChecked());
  EXPECT_EQ(strip.spaceButton()->text(), "Local");

  // ...and a click sets the controls.
  strip.toolButton(editor::ViewportTransformTool::scale)->click();
  EXPECT_EQ(tool(), editor::ViewportTransformTool::scale);
  strip.spaceButton()->click();
  EXPECT_EQ(space(), editor::ViewportTransformSpace::world);
  EXPECT_EQ(strip.spaceButton()->text(), "World");
  strip.spaceButton()->click();
  EXPECT_EQ(space(), editor::ViewportTransformSpace::local);
  for (const auto each :
       {editor::ViewportTransformTool::translate, editor::ViewportTransformTool::rotate,
        editor::ViewportTransformTool::scale}) {
    EXPECT_EQ(strip.toolButton(each)->focusPolicy(), Qt::NoFocus) << "the viewport keeps its keys";
  }

  // In Full 3D View the strip offers the way back.
  EXPECT_TRUE(strip.exitFocusButton()->isHidden());
  model_->viewPreferences.viewportFocusMode.set(true);
  EXPECT_FALSE(strip.exitFocusButton()->isHidden());
  EXPECT_EQ(strip.exitFocusButton()->text(), "Exit Full 3D View");
  strip.exitFocusButton()->click();
  EXPECT_FALSE(model_->viewPreferences.viewportFocusMode.get());
  EXPECT_TRUE(strip.exitFocusButton()->isHidden());
}

TEST_F(RuntimeViewportTest, WERPickTheGizmoInAFocusedFreeViewportAndFlyWhileAButtonHolds) {
  auto* field = new QLineEdit(window_.get());
  field->setGeometry(0, 0, 80, 20);
  const auto client = openClient();
  ASSERT_TRUE(client);
  window_->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
  auto tool = [&] { return model_->session.viewport.get().controls.transformTool; };
  auto keyLines = [&] {
    std::vector<std::string> keys;
    for (const std::string& line : client->lines()) {
      if (line.rfind("key|", 0) == 0)
        keys.push_back(line);
    }
    return keys;
  };

  // Typing in a field is typing, whatever the letters.
  field->setFocus();
  QTest::keyClicks(field, "wer");
  EXPECT_EQ(field->text(), "wer");
  EXPECT_EQ(tool(), editor::ViewportTransformTool::translate);

  // In the focused viewport the letters pick the gizmo, and neither press nor release reaches the
  // runtime, where a W would otherwise fly the camera.
  viewport_->view().setFocus();
  ASSERT_TRUE(viewport_->view().hasFocus());
  QTest::keyClick(&viewport_->view(), Qt::Key_E);
  EXPECT_EQ(tool(), editor::ViewportTransformTool::rotate);
  QTest::keyClick(&viewport_->view(), Qt::Key_R);
  EXPECT_EQ(tool(), editor::ViewportTransformTool::scale);
  QTest::keyClick(&viewport_->view(), Qt::Key_W);
  EXPECT_EQ(tool(), editor::ViewportTransformTool::translate);
  settle();
  EXPECT_THAT(keyLines(), IsEmpty());
  // With Control the letter is a shortcut's, not a tool key.
  QTest::keyClick(&viewport_->view(), Qt::Key_E, Qt::ControlModifier);
  EXPECT_EQ(tool(), editor::ViewportTransformTool::translate);

  // While the right button holds the view, W flies: it goes out, down and up, and the tool stays.
  QTest::mousePress(&viewport_->view(), Qt::RightButton, Qt::NoModifier, QPoint(50, 50));
  QTest::keyClick(&viewport_->view(), Qt::Key_E);
  QTest::mouseRelease(&viewport_->view(), Qt::RightButton, Qt::NoModifier, QPoint(50, 50));
  EXPECT_EQ(tool(), editor::ViewportTransformTool::translate);
  settle();
  std::vector<std::string> keys = keyLines();
  ASSERT_GE(keys.size(), 2u);
  EXPECT_THAT(keys[keys.size() - 2], HasSubstr("key|down|"));
  EXPECT_THAT(keys[keys.size() - 2], HasSubstr("|e|"));
  EXPECT_THAT(keys.back(), HasSubstr("key|up|"));

  // A game camera leaves every key to the runtime.
  model_->session.viewport.update([](editor::ViewportControlsState& state) {
    state.controls.cameraMode = editor::ViewportCameraMode::game;
  });
  settle();
  QTest::keyClick(&viewport_->view(), Qt::Key_R);
  EXPECT_EQ(tool(), editor::ViewportTransformTool::translate);
  settle();
  keys = keyLines();
  ASSERT_FALSE(keys.empty());
  EXPECT_THAT(keys.back(), HasSubstr("|r|"));
}

}  // namespace
}  // namespace orvan::ui
