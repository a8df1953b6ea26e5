// The viewport in the window, over a real model on virtual time: the host's children are scripted,
// the model's stage comes from the fake inspector, and the Qt event loop runs the view.
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Application/EditorModel.h"
#include "EditorWindow.h"
#include "OrvanUsdEditorCore/Viewport/ViewportHostFakes.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"
#include "Viewport/RuntimeViewport.h"
#include "Viewport/RuntimeViewportContainerView.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::ui {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kRuntime = "/opt/orvan/orvan_runtime_viewport";
constexpr const char* kClient = "/opt/orvan/orvan_viewport_client";

// /World with A and B, B an instance root.
editor::StageInspection twoPrimStage() {
  editor::StageInspection stage;
  stage.sceneUri = "/demo/scene.usda";
  auto node = [](const std::string& path, const std::string& parent) {
    editor::UsdPrimNode each;
    each.path = path;
    each.name = path.substr(path.rfind('/') + 1);
    each.parent = parent;
    return each;
  };
  auto prim = [&](const std::string& path, const std::string& parent) {
    editor::UsdPrimDetail each;
    each.path = path;
    each.name = path.substr(path.rfind('/') + 1);
    each.parent = parent;
    each.entityPath = path;
    stage.prims.push_back(each);
    return &stage.prims.back();
  };
  editor::UsdPrimNode world = node("/World", "/");
  world.children = {node("/World/A", "/World"), node("/World/B", "/World")};
  stage.rootPrims.push_back(world);
  prim("/World", "/");
  prim("/World/A", "/World");
  prim("/World/B", "/World")->instanceable = true;
  return stage;
}

class RuntimeViewportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    launcher_.executables = {kRuntime, kClient};
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
  std::shared_ptr<editor::testing::FakeChild> openClient() {
    window_->show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window_.get()));
    settle();
    const auto runtimes = launcher_.startedFrom(kRuntime);
    EXPECT_EQ(runtimes.size(), 1u);
    if (runtimes.empty())
      return nullptr;
    runtimes.front()->emitStdout("Viewport server listening\n");
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
  editor::testing::FakeProcessLauncher launcher_;
  editor::testing::FakeSurfaceLookup surfaces_;
  editor::testing::InlineExecutor inputQueue_;
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
  client->emitStdout(R"({"type":"selection","entityPaths":["/World/A"]})"
                     "\n");
  settle();
  EXPECT_EQ(model_->session.sceneSelection.get().paths, std::vector<std::string>{"/World/A"});
  EXPECT_EQ(model_->session.sceneSelection.get().primaryPath, "/World/A");

  // A frame: shown, the reason goes, the surface is acknowledged once it was copied.
  surfaces_.add(7, 40, 30);
  client->emitStdout(R"({"type":"frame","frameIndex":1,"surfaceId":7,"widthPx":40,"heightPx":30})"
                     "\n");
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
      R"("values":[1,2,3],"previewSessionId":"s1","final":true,"duplicateRequested":false})"
      "\n");
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

TEST_F(RuntimeViewportTest, TheWindowPutsTheViewportBetweenThePanes) {
  EditorWindow window(*model_);
  window.showRuntimeViewport(launcher_, surfaces_);
  ASSERT_NE(window.runtimeViewport(), nullptr);
  EXPECT_EQ(window.viewportPane(), &window.runtimeViewport()->view());
  EXPECT_TRUE(window.hierarchyPane()->parentWidget()->isAncestorOf(window.viewportPane()));
}

}  // namespace
}  // namespace orvan::ui
