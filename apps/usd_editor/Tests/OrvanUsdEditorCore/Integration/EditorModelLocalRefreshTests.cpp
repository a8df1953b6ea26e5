// The local stage path end to end: the model runs a real (fake) inspector process, decodes and
// normalises its output off the main thread, and applies it on the main thread, with virtual time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Support/FakeHttpClient.h"
#include "Support/Fifo.h"
#include "Support/ManualScheduler.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

using ::testing::HasSubstr;

std::string stageJson(const std::string& rootName) {
  return R"({"sceneUri":"/demo/)" + rootName +
         R"(.usda","rootPrims":[)"
         R"({"path":"/)" +
         rootName + R"(","name":")" + rootName +
         R"(","typeName":"Xform","parent":"/","active":true,"badges":[],"children":[]},)"
         R"({"path":"/_OrvanAssets","name":"_OrvanAssets","typeName":"","parent":"/","active":true,"badges":[],"children":[]}],)"
         R"("prims":[{"path":"/)" +
         rootName + R"(","name":")" + rootName +
         R"(","typeName":"Xform","parent":"/","active":true,"badges":["entity"],"entityPath":"/)" +
         rootName + R"(","entityId":7,"components":[],"attributes":[]}],"catalog":[],"assets":[]})";
}

class EditorModelLocalRefreshTest : public ::testing::Test {
 protected:
  void SetUp() override {
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.scenePath = scene("scene.usda", stageJson("World"));
  }
  std::string scene(const std::string& name, const std::string& contents) {
    return folder_.write(name, contents).string();
  }

  // The editor moves to another scene file, as a switch of scene would.
  void openScene(const std::string& path) {
    model().scope.current.update([&](SharedClientScope& place) { place.scene = path; });
  }

  EditorModel& model() {
    if (!model_) {
      model_ = std::make_unique<EditorModel>(
          configuration_, EditorModelPorts{scheduler_, scheduler_.background(), preferences_,
                                           secrets_, launcher_, http_});
    }
    return *model_;
  }

  // Runs a refresh to its end, of a new scene file when one is given.
  void refreshNow(const std::string& name = "", const std::string& contents = "") {
    if (!name.empty())
      openScene(scene(name, contents));
    model().stageRefresher.refresh();
    scheduler_.runUntilQuiet();
  }

  std::vector<std::string> rootNames() const {
    std::vector<std::string> names;
    for (const auto& node : model_->currentStage().rootPrims)
      names.push_back(node.name);
    return names;
  }

  testing::TemporaryFolder folder_;
  EditorConfiguration configuration_;
  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<EditorModel> model_;
};

TEST_F(EditorModelLocalRefreshTest, ASecondRefreshDropsTheFirstEvenWhenItCompletes) {
  EditorModel& editor = model();
  editor.stageRefresher.refresh();
  // The first inspector run finishes and its reply waits for the main thread...
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kNo);
  // ...when the scene changes and a new refresh starts.
  openScene(scene("second.usda", stageJson("Second")));
  editor.stageRefresher.refresh();
  std::vector<std::string> seen;
  Subscription subscription = editor.stage.subscribe(
      [&](const auto& prepared) { seen.push_back(prepared->stage().rootPrims.at(0).name); });
  scheduler_.runBackground();
  EXPECT_EQ(seen, (std::vector<std::string>{"Second"})) << "the stale stage was never applied";
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Second"}));
}

// A local launch loads its stage without blocking, then failures keep it and say why.
TEST_F(EditorModelLocalRefreshTest, LocalStageLoadsAndFailuresKeepItAndSayWhy) {
  EditorModel& editor = model();
  EXPECT_FALSE(editor.isStartupBlocking());
  EXPECT_TRUE(editor.canLaunchViewport()) << "a local launch never holds the viewport back";
  editor.startInitialRefresh();
  EXPECT_TRUE(editor.startup.initialProjectResolved.get());
  EXPECT_TRUE(editor.currentStage().prims.empty()) << "nothing is applied before the work ran";
  scheduler_.runBackground();
  EXPECT_EQ(editor.status.get(), "Loaded composed OpenUSD stage");
  ASSERT_EQ(rootNames(), (std::vector<std::string>{"World"})) << "internal prims are removed";
  EXPECT_EQ(editor.projectLabel(), "World.usda");
  EXPECT_EQ(editor.revision.get(), 1u) << "a local stage carries no revision";

  struct Case {
    std::string name;
    std::string contents;
    std::string diagnosticContains;
  };
  const std::vector<Case> cases = {
      // More than a pipe's buffer on standard error, then a failing exit: no hang, status kept.
      {"flood.usda", "#flood 2097152 4\n", "last words of the flood"},
      {"fail.usda", "#fail 3 scene.usda:4:7: expected '(' after def\n", "expected '(' after def"},
      {"garbage.usda", "#garbage\n", "stage"},
      // A message in another encoding is shown with its odd bytes replaced, not as nothing.
      {"latin1.usda", "#fail 3 sc\xE8ne illisible\n", "sc\xEF\xBF\xBDne illisible"},
  };
  for (const Case& failure : cases) {
    refreshNow(failure.name, failure.contents);
    EXPECT_EQ(editor.status.get(),
              "Refresh failed: Nothing was changed. Try again, or return to your projects.")
        << failure.name;
    ASSERT_TRUE(editor.startup.connectionIssue.get().has_value()) << failure.name;
    EXPECT_NE(editor.startup.connectionIssue.get()->diagnostic.find(failure.diagnosticContains),
              std::string::npos)
        << failure.name << ": " << editor.startup.connectionIssue.get()->diagnostic.substr(0, 200);
    EXPECT_EQ(rootNames(), (std::vector<std::string>{"World"})) << failure.name;
  }

  // A missing scene fails the same way, and the next good stage clears the issue.
  openScene((folder_ / "missing.usda").string());
  refreshNow();
  EXPECT_THAT(editor.startup.connectionIssue.get()->diagnostic, HasSubstr("cannot open"));
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"World"}));
  refreshNow("good.usda", stageJson("Again"));
  EXPECT_FALSE(editor.startup.connectionIssue.get().has_value());
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Again"}));

  // So does a missing inspector.
  model_.reset();
  configuration_.inspectorPath = (folder_ / "no-such-inspector").string();
  refreshNow();
  ASSERT_TRUE(model().startup.connectionIssue.get().has_value());
  EXPECT_THAT(model().startup.connectionIssue.get()->diagnostic, HasSubstr("no-such-inspector"));
}

// Makes a folder the process's working directory while it lives.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& folder)
      : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~WorkingDirectory() { std::filesystem::current_path(previous_); }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path previous_;
};

// The inspector is handed only regular files, and a scene never as one of its options.
TEST_F(EditorModelLocalRefreshTest, TheInspectorGetsARegularSceneAndNeverAnOption) {
  EditorModel& editor = model();
  refreshNow();
  ASSERT_EQ(rootNames(), (std::vector<std::string>{"World"}));

  {
    const WorkingDirectory inFolder(folder_.path());
    scene("--help.usda", stageJson("Dashed"));
    openScene("--help.usda");
    refreshNow();
  }
  EXPECT_FALSE(editor.startup.connectionIssue.get().has_value())
      << editor.startup.connectionIssue.get()->diagnostic;
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Dashed"}));

  const std::filesystem::path fifo = folder_ / "pipe.usda";
  ASSERT_TRUE(testing::makeFifo(fifo));
  openScene(fifo.string());
  EXPECT_TRUE(testing::endsWithoutAWriter(fifo, [&] { refreshNow(); }))
      << "the refresh waited on a FIFO";
  ASSERT_TRUE(editor.startup.connectionIssue.get().has_value());
  EXPECT_THAT(editor.startup.connectionIssue.get()->diagnostic, HasSubstr("not a regular file"));
  EXPECT_EQ(rootNames(), (std::vector<std::string>{"Dashed"}));
}

TEST_F(EditorModelLocalRefreshTest, AResultArrivingAfterTheModelIsGoneIsDropped) {
  model().stageRefresher.refresh();
  scheduler_.runBackground(testing::ManualScheduler::ThenRunMain::kNo);
  model_.reset();
  EXPECT_NO_FATAL_FAILURE(scheduler_.runUntilIdle());
}

}  // namespace
}  // namespace orvan::editor
