#include <gtest/gtest.h>

#include "Application/StartupPresentation.h"

namespace orvan::editor {
namespace {

TEST(StartupSheetTest, FirstMatchingRowDecides) {
  const VelkConnectionIssue issue =
      VelkConnectionIssue::classify(401, std::nullopt, false, std::nullopt, "HTTP 401");
  const auto withIssue = startupSheetContent(issue, "timed out", "https://srv");
  EXPECT_EQ(withIssue.title, "Sign in to Velk");
  EXPECT_EQ(withIssue.message, issue.message);
  ASSERT_TRUE(withIssue.issue.has_value());

  EXPECT_EQ(startupSheetContent(std::nullopt, "timed out", "https://srv"),
            (StartupSheetContent{"Project Did Not Respond", "timed out", std::nullopt}));
  EXPECT_EQ(startupSheetContent(std::nullopt, "", " \n"),
            (StartupSheetContent{"Opening Project", "No project server configured", std::nullopt}));
  EXPECT_EQ(startupSheetContent(std::nullopt, "", " https://srv \n"),
            (StartupSheetContent{"Opening Project", "https://srv", std::nullopt}));
}

TEST(ProjectLabelTest, TransitionThenSceneThenFallbacks) {
  ProjectLabelInputs inputs;
  inputs.projectConnectionInFlight = true;
  EXPECT_EQ(projectLabel(inputs), "Opening Project");
  inputs.projectTransitionMessage = "Opening Demo";
  EXPECT_EQ(projectLabel(inputs), "Opening Demo");
  inputs.seamlessWorkspaceTransitionInFlight = true;  // a seamless switch keeps the scene's name
  inputs.stageSceneUri = "/projects/demo/scenes/main.usda";
  EXPECT_EQ(projectLabel(inputs), "main.usda");

  ProjectLabelInputs idle;
  idle.stageSceneUri = "https://srv/api/scene/level1.usda?w=main";
  EXPECT_EQ(projectLabel(idle), "level1.usda");
  idle.stageSceneUri = "/";
  idle.remoteStageURL = "https://srv/api/stage";
  EXPECT_EQ(projectLabel(idle), "Loading project") << "an unusable scene name falls through";
  idle.remoteStageURL = "";
  EXPECT_EQ(projectLabel(idle), "No project");
  idle.scenePath = "demo/hello_world.usda";
  EXPECT_EQ(projectLabel(idle), "hello_world.usda");
}

TEST(ProjectLabelTest, LoadingMessage) {
  EXPECT_EQ(projectLoadingMessage({}), "Loading Project");
  EXPECT_EQ(projectLoadingMessage({.stageRefreshInFlight = true}), "Loading stage");
  EXPECT_EQ(
      projectLoadingMessage({.projectConnectionInFlight = true, .stageRefreshInFlight = true}),
      "Opening Project");
  EXPECT_EQ(projectLoadingMessage({.seamlessWorkspaceTransitionInFlight = true,
                                   .projectConnectionInFlight = true,
                                   .projectTransitionMessage = "Opening dev"}),
            "Opening dev");
}

}  // namespace
}  // namespace orvan::editor
