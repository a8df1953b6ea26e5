// The application's construction: links kept from before the model exists, the window's first
// showing starting the editor, and the updater's single delayed start, on virtual time.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <future>

#include "App/OrvanUsdEditorApp.h"
#include "App/SingleInstance.h"
#include "Application/EditorModel.h"
#include "EditorWindow.h"
#include "Platform/LoggingSoftwareUpdater.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "Platform/SoftwareUpdater.h"
#include "QtApplicationEnvironment.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"

namespace orvan::ui {
namespace {

using namespace std::chrono_literals;

class CountingUpdater final : public editor::SoftwareUpdater {
 public:
  void start() override { ++starts; }
  bool isStarted() const override { return starts > 0; }
  void checkForUpdates() override {}
  int starts = 0;
};

class OrvanUsdEditorAppTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::testApplication();
    configuration_.projectServerURL = "";
    configuration_.inspectorPath = ORVAN_FAKE_INSPECTOR_PATH;
    configuration_.scenePath = "/nonexistent/scene.usda";
  }

  std::unique_ptr<OrvanUsdEditorApp> makeApp(std::vector<std::string> urls, QString name = {}) {
    return std::make_unique<OrvanUsdEditorApp>(
        configuration_,
        OrvanUsdEditorAppPorts{scheduler_, scheduler_.background(), preferences_, secrets_,
                               launcher_, http_, updater_},
        std::move(urls), std::move(name));
  }

  editor::EditorConfiguration configuration_;
  editor::testing::ManualScheduler scheduler_;
  editor::InMemoryPreferencesStore preferences_;
  editor::InMemorySecretStore secrets_;
  editor::PosixProcessLauncher launcher_;
  editor::testing::FakeHttpClient http_{scheduler_};
  CountingUpdater updater_;
};

TEST_F(OrvanUsdEditorAppTest, TheUpdaterStartsOnceThreeSecondsAfterTheWindowShows) {
  makeApp({})->show();
  scheduler_.advanceBy(10s);
  EXPECT_EQ(updater_.starts, 0) << "an app that ends before the delay never starts it";

  auto app = makeApp({});
  EXPECT_EQ(updater_.starts, 0) << "created without starting";
  app->show();
  EXPECT_EQ(app->model().stageRefresher.refreshGeneration, 1u)
      << "the window's first showing starts the editor";
  scheduler_.advanceBy(2999ms);
  EXPECT_EQ(updater_.starts, 0);
  scheduler_.advanceBy(1ms);
  EXPECT_EQ(updater_.starts, 1);
  app->show();
  scheduler_.advanceBy(10s);
  EXPECT_EQ(updater_.starts, 1);
}

TEST_F(OrvanUsdEditorAppTest, LinksFromTheLaunchAndFromLaterLaunchesAreQueued) {
  const QString name = QStringLiteral("orvan-test-app-%1").arg(::getpid());
  auto app = makeApp({"velk://open?project=demo"}, name);
  ASSERT_TRUE(app->receivesForwardedURLs());
  auto forwarded = std::async(
      std::launch::async, [=] { return forwardURLToRunningEditor(name, "orvan://open?scene=b"); });
  testing::processEventsUntil([&] { return forwarded.wait_for(0s) == std::future_status::ready; },
                              10000);
  EXPECT_TRUE(forwarded.get());
  EXPECT_EQ(app->incomingURLs().pending(),
            (std::vector<std::string>{"velk://open?project=demo", "orvan://open?scene=b"}));
}

TEST(LoggingSoftwareUpdaterTest, StartsOnlyOnce) {
  editor::LoggingSoftwareUpdater updater;
  EXPECT_FALSE(updater.isStarted());
  updater.checkForUpdates();
  EXPECT_TRUE(updater.isStarted()) << "a check starts an updater that was not started";
  updater.start();
  EXPECT_TRUE(updater.isStarted());
}

}  // namespace
}  // namespace orvan::ui
