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

TEST_F(SharedScopeSwitchCoordinatorTest, PresentsTheDestinationUntilAccepted) {
  ASSERT_NE(coordinator.handle(), nullptr);
  SharedClientScope requested = scope("p2", "/Users/a/Game.orvanproject/scenes/b.usda", "");
  requested.server = "https://projects.example/";
  const std::uint64_t id = coordinator.begin(active, requested);
  ASSERT_NE(id, 0u);
  EXPECT_EQ(coordinator.visibleScope(), scope("p2", "scenes/b.usda"))
      << "the presented destination is normalised";

  SharedClientScope resolved = scope("p2-id", "", "dev");
  resolved.activeLayer = "anim.usda";
  EXPECT_TRUE(coordinator.accept(id, resolved));
  SharedClientScope expected = scope("p2-id", "scenes/b.usda", "dev");
  expected.activeLayer = "anim.usda";
  EXPECT_EQ(coordinator.visibleScope(), expected);
  EXPECT_FALSE(coordinator.accept(id, resolved)) << "a switch completes once";
}

TEST_F(SharedScopeSwitchCoordinatorTest, EachBeginSupersedesTheSwitchBeforeIt) {
  const std::uint64_t first = coordinator.begin(active, scope("p2", "b.usda"));
  const std::uint64_t second = coordinator.begin(active, scope("p3", "c.usda"));
  ASSERT_NE(first, 0u);
  ASSERT_NE(second, 0u);
  EXPECT_NE(first, second);
  EXPECT_FALSE(coordinator.accept(first, scope("p2", "b.usda")));
  EXPECT_EQ(velk_client_switch_target_is_current(coordinator.handle(), first), 0);
  EXPECT_EQ(velk_client_switch_target_is_current(coordinator.handle(), second), 1);
  EXPECT_EQ(coordinator.visibleScope(), scope("p3", "c.usda"));
}

TEST_F(SharedScopeSwitchCoordinatorTest, RequestingWhatIsShownStartsNothing) {
  EXPECT_EQ(coordinator.begin(active, active), 0u);
  EXPECT_EQ(coordinator.begin(active, SharedClientScope{}), 0u);
  EXPECT_EQ(coordinator.visibleScope(), active);
}

TEST_F(SharedScopeSwitchCoordinatorTest, AWorkspaceSwitchMayKeepTheSceneOnScreen) {
  const std::uint64_t workspace = coordinator.begin(active, scope("p1", "a.usda", "dev"));
  EXPECT_EQ(velk_client_switch_preserves_presented_content(coordinator.handle(), workspace), 1);
  const std::uint64_t project = coordinator.begin(active, scope("p2", "a.usda"));
  EXPECT_EQ(velk_client_switch_preserves_presented_content(coordinator.handle(), project), 0);
}

TEST_F(SharedScopeSwitchCoordinatorTest, AFailedSwitchSnapsBackToTheActiveScope) {
  const std::uint64_t id = coordinator.begin(active, scope("p2", "b.usda"));
  EXPECT_EQ(velk_client_switch_fail_target(coordinator.handle(), id), 1);
  EXPECT_EQ(coordinator.visibleScope(), active);
  EXPECT_FALSE(coordinator.accept(id, scope("p2", "b.usda")));
}

TEST_F(SharedScopeSwitchCoordinatorTest, AcceptedBlankServerAndWorkspaceFallBackToDefaults) {
  const SharedClientScope defaults = *SharedScopeSwitchCoordinator().visibleScope();
  ASSERT_FALSE(defaults.server.empty());
  EXPECT_EQ(defaults.workspace, "main");

  const std::uint64_t id = coordinator.begin(active, scope("p2", "b.usda", "dev"));
  SharedClientScope projectOnly;
  projectOnly.project = "p2";
  EXPECT_TRUE(coordinator.accept(id, projectOnly));
  const SharedClientScope visible = *coordinator.visibleScope();
  EXPECT_EQ(visible.server, defaults.server);
  EXPECT_EQ(visible.workspace, "main");
  EXPECT_EQ(visible.scene, "b.usda");
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
