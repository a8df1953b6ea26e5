#include <gtest/gtest.h>

#include "Launch/HostedProjectLaunchScope.h"

namespace orvan::editor {
namespace {

EditorConfiguration launch(std::string projectId, std::string projectPath, std::string scenePath) {
  EditorConfiguration configuration;
  configuration.projectId = std::move(projectId);
  configuration.projectPath = std::move(projectPath);
  configuration.scenePath = std::move(scenePath);
  return configuration;
}

const HostedProjectLaunchScope kStored{"p1", "/projects/one", "scenes/../scenes/main.usda", "dev"};

TEST(LaunchScopeTest, ServerKeysAndHostedScenePaths) {
  EXPECT_EQ(launchScopeServerKey(" HTTPS://Host.Example:8443// \n"), "https://host.example:8443");
  EXPECT_EQ(hostedScenePath("  ", "/p"), "");
  EXPECT_EQ(hostedScenePath(" /a/./b/../c.usda ", "/p"), "/a/c.usda");
  EXPECT_EQ(hostedScenePath("../x.usda", "/p/q"), "/p/x.usda");
  EXPECT_EQ(hostedScenePath("scenes/./x.usda", ""), "scenes/./x.usda");
}

TEST(LaunchScopeTest, WithoutAnExplicitScopeTheStoredOneIsTakenWhole) {
  auto configuration = launch("", " ", "");
  applyRememberedLaunchScope(configuration, kStored);
  EXPECT_EQ(configuration.projectId, "p1");
  EXPECT_EQ(configuration.projectPath, "/projects/one");
  EXPECT_EQ(configuration.scenePath, "/projects/one/scenes/main.usda");
  EXPECT_EQ(configuration.workspace, "dev");

  auto emptyWorkspace = launch("", "", "");
  applyRememberedLaunchScope(emptyWorkspace, HostedProjectLaunchScope{"p2", "", "s.usda", ""});
  EXPECT_EQ(emptyWorkspace.workspace, "main");
  EXPECT_EQ(emptyWorkspace.scenePath, "s.usda") << "no project path to make it absolute against";
}

TEST(LaunchScopeTest, ExplicitScopeOfTheSameProjectOnlyFillsGapsAndKeepsItsWorkspace) {
  auto configuration = launch("p1", "", "");
  applyRememberedLaunchScope(configuration, kStored);
  EXPECT_EQ(configuration.projectPath, "/projects/one");
  EXPECT_EQ(configuration.scenePath, "/projects/one/scenes/main.usda");
  EXPECT_EQ(configuration.workspace, "main");

  auto ownScene = launch("p1", "", "/elsewhere/x.usda");
  applyRememberedLaunchScope(ownScene, kStored);
  EXPECT_EQ(ownScene.scenePath, "/elsewhere/x.usda");
  EXPECT_EQ(ownScene.projectPath, "/projects/one");
}

TEST(LaunchScopeTest, ExplicitScopeOfAnotherProjectIgnoresTheStoredOne) {
  // Project ids compare exactly.
  auto configuration = launch("P1", "", "");
  applyRememberedLaunchScope(configuration, kStored);
  EXPECT_EQ(configuration, launch("P1", "", ""));
  // Without a stored scope, a relative scene is still joined to the project path.
  auto relative = launch("", "/proj", "a/../b.usda");
  applyRememberedLaunchScope(relative, std::nullopt);
  EXPECT_EQ(relative.scenePath, "/proj/b.usda");
}

}  // namespace
}  // namespace orvan::editor
