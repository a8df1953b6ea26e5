#include <gtest/gtest.h>

#include "ProjectsAndWorkspaces/SharedScopeSwitchCoordinator.h"

namespace orvan::editor {
namespace {

SharedClientScope scope(std::string project, std::string scene, std::string workspace = "main") {
  return SharedClientScope{.server = "https://projects.example",
                           .project = std::move(project),
                           .projectRoot = "",
                           .scene = std::move(scene),
                           .workspace = std::move(workspace),
                           .activeLayer = ""};
}

class SharedScopeSwitchCoordinatorTest : public ::testing::Test {
 protected:
  SharedScopeSwitchCoordinator coordinator;
  const SharedClientScope active = scope("p1", "a.usda");
};

TEST_F(SharedScopeSwitchCoordinatorTest, PresentsTheNormalisedDestinationUntilAccepted) {
  const SharedClientScope requested{.server = "https://projects.example/",
                                    .project = "p2",
                                    .projectRoot = "/root",
                                    .scene = "/Users/a/Game.orvanproject/scenes/b.usda",
                                    .workspace = "",
                                    .activeLayer = "layer.usda"};
  const std::uint64_t id = coordinator.begin(active, requested);
  ASSERT_NE(id, 0u);
  const SharedClientScope presented{.server = "https://projects.example",
                                    .project = "p2",
                                    .projectRoot = "/root",
                                    .scene = "scenes/b.usda",
                                    .workspace = "main",
                                    .activeLayer = "layer.usda"};
  EXPECT_EQ(coordinator.visibleScope(), presented);

  const SharedClientScope resolved{.server = "https://other.example",
                                   .project = "p2-id",
                                   .projectRoot = "/resolved",
                                   .scene = "scenes/c.usda",
                                   .workspace = "dev",
                                   .activeLayer = "anim.usda"};
  EXPECT_TRUE(coordinator.accept(id, resolved));
  EXPECT_EQ(coordinator.visibleScope(), resolved);
  EXPECT_FALSE(coordinator.accept(id, resolved)) << "a switch completes once";
}

TEST_F(SharedScopeSwitchCoordinatorTest, EachBeginRebasesOnWhatIsShownAndSupersedesTheLastSwitch) {
  const std::uint64_t first = coordinator.begin(active, scope("p2", "b.usda"));
  const std::uint64_t second = coordinator.begin(active, scope("p3", "c.usda"));
  ASSERT_NE(second, 0u);
  EXPECT_NE(first, second);
  EXPECT_FALSE(coordinator.accept(first, scope("p2", "b.usda")));
  EXPECT_EQ(coordinator.visibleScope(), scope("p3", "c.usda"));
  EXPECT_EQ(velk_client_switch_fail_target(coordinator.handle(), second), 1);
  EXPECT_EQ(coordinator.visibleScope(), active) << "a failed switch snaps back";

  // Requesting what is shown starts nothing, and so does requesting nothing.
  const SharedClientScope elsewhere = scope("p9", "z.usda");
  EXPECT_EQ(coordinator.begin(elsewhere, elsewhere), 0u);
  EXPECT_EQ(coordinator.begin(elsewhere, SharedClientScope{}), 0u);
  EXPECT_EQ(coordinator.visibleScope(), elsewhere);
}

TEST_F(SharedScopeSwitchCoordinatorTest, AcceptedBlankServerAndWorkspaceFallBackToDefaults) {
  SharedClientScope expected = scope("p2", "b.usda");
  expected.server = SharedScopeSwitchCoordinator().visibleScope()->server;
  ASSERT_FALSE(expected.server.empty());
  const std::uint64_t id = coordinator.begin(active, scope("p2", "b.usda", "dev"));
  SharedClientScope projectOnly;
  projectOnly.project = "p2";
  EXPECT_TRUE(coordinator.accept(id, projectOnly));
  EXPECT_EQ(coordinator.visibleScope(), expected);
}

TEST(SharedScopeRenderTest, NeedsASceneAndAProjectLocation) {
  EXPECT_TRUE(SharedScopeSwitchCoordinator::hasRenderScope(scope("p", "a.usda")));
  SharedClientScope rooted = scope("", "a.usda");
  rooted.projectRoot = "/r";
  EXPECT_TRUE(SharedScopeSwitchCoordinator::hasRenderScope(rooted));
  EXPECT_FALSE(SharedScopeSwitchCoordinator::hasRenderScope(scope("p", "")));
  EXPECT_FALSE(SharedScopeSwitchCoordinator::hasRenderScope(scope("", "a.usda")));
}

}  // namespace
}  // namespace orvan::editor
