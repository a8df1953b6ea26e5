#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "orvan/client/DestinationPickerCopy.h"
#include "orvan/client/SwitchCoordinator.h"

namespace orvan::client {
namespace {

ClientTarget scope(std::string project, std::string scene, std::string workspace = "main") {
  ClientTarget target;
  target.server_url = "https://a";
  target.project_id = std::move(project);
  target.scene_uri = std::move(scene);
  target.workspace = std::move(workspace);
  return target;
}

class SwitchCoordinatorTest : public ::testing::Test {
 protected:
  SwitchCoordinator coordinator{scope("p1", "a.usda")};
};

TEST_F(SwitchCoordinatorTest, StartsOnTheNormalisedTargetWithoutAPlan) {
  ClientTarget raw = scope("p1", "x.orvanproject/a.usda", "");
  raw.server_url = "https://a/";
  const SwitchCoordinator fresh(raw);
  EXPECT_EQ(fresh.active, scope("p1", "a.usda"));
  EXPECT_FALSE(fresh.plan.has_value());
  EXPECT_EQ(fresh.generation, 0u);
  EXPECT_EQ(SwitchCoordinator().active.server_url, kDefaultServerUrl);
}

TEST_F(SwitchCoordinatorTest, PlansASwitchToADifferentTarget) {
  const std::optional<SwitchPlan> plan = coordinator.begin(scope("p2", "b.usda"), false);
  ASSERT_TRUE(plan.has_value());
  EXPECT_EQ(plan->id, 1u);
  EXPECT_EQ(plan->active, scope("p1", "a.usda"));
  EXPECT_EQ(plan->requested, scope("p2", "b.usda"));
  EXPECT_EQ(plan->mode, SwitchMode::show_requested);
  EXPECT_FALSE(plan->preserves_presented_content);
  EXPECT_TRUE(plan->reserved_first);
  EXPECT_TRUE(plan->reserved_second);
  EXPECT_TRUE(coordinator.is_current(1));
  EXPECT_EQ(coordinator.visible_target(), scope("p2", "b.usda"))
      << "the destination is presented while the switch runs";

  const std::optional<SwitchPlan> workspace = coordinator.begin(scope("p1", "a.usda", "dev"), true);
  ASSERT_TRUE(workspace.has_value());
  EXPECT_EQ(workspace->id, 2u);
  EXPECT_EQ(workspace->mode, SwitchMode::keep_active_visible);
  EXPECT_TRUE(workspace->preserves_presented_content) << "same scene, other workspace";
  EXPECT_EQ(coordinator.visible_target(), scope("p1", "a.usda"));
}

TEST_F(SwitchCoordinatorTest, RequestNamingNothingChangesNothing) {
  const std::optional<SwitchPlan> running = coordinator.begin(scope("p2", "b.usda"), false);
  ClientTarget nothing;
  nothing.workspace = "dev";
  nothing.active_layer = "layer";
  nothing.tick = 4;
  EXPECT_FALSE(coordinator.begin(nothing, false).has_value());
  EXPECT_TRUE(coordinator.is_current(running->id)) << "the running switch stays current";
  EXPECT_EQ(coordinator.generation, 1u);
}

TEST_F(SwitchCoordinatorTest, RequestingTheActiveTargetCancelsARunningSwitch) {
  ClientTarget sameWithSlash = scope("p1", "a.usda");
  sameWithSlash.server_url = "https://a/";
  EXPECT_FALSE(coordinator.begin(sameWithSlash, false).has_value());
  EXPECT_EQ(coordinator.generation, 0u) << "without a plan there is nothing to cancel";

  const std::uint64_t id = coordinator.begin(scope("p2", "b.usda"), false)->id;
  EXPECT_FALSE(coordinator.begin(sameWithSlash, false).has_value());
  EXPECT_FALSE(coordinator.is_current(id));
  EXPECT_FALSE(coordinator.accept(id, ClientTarget{}));
  EXPECT_EQ(coordinator.generation, 2u);
  EXPECT_EQ(coordinator.active, scope("p1", "a.usda"));
}

TEST_F(SwitchCoordinatorTest, ALaterSwitchMakesTheEarlierIdStale) {
  const std::uint64_t first = coordinator.begin(scope("p2", "b.usda"), false)->id;
  const std::uint64_t second = coordinator.begin(scope("p3", "c.usda"), false)->id;
  EXPECT_NE(first, second);
  EXPECT_FALSE(coordinator.accept(first, scope("p2", "b.usda")));
  EXPECT_FALSE(coordinator.fail(first));
  EXPECT_TRUE(coordinator.is_current(second)) << "a stale failure leaves the new plan standing";
  EXPECT_TRUE(coordinator.accept(second, ClientTarget{}));
  EXPECT_EQ(coordinator.active.project_id, "p3");
}

TEST_F(SwitchCoordinatorTest, AcceptMergesTheResolvedFieldsOverTheRequest) {
  ClientTarget requested = scope("p2", "b.usda", "dev");
  requested.active_layer = "layer.usda";
  requested.selection = {"/a"};
  requested.pause_on_open = true;
  requested.tick = 3;
  const std::uint64_t id = coordinator.begin(requested, false)->id;

  ClientTarget resolved;
  resolved.project_id = "p2-canonical";
  resolved.host = "render";
  resolved.selection = {"/b", "/c"};
  resolved.tick = 9;
  EXPECT_TRUE(coordinator.accept(id, resolved));

  EXPECT_FALSE(coordinator.plan.has_value());
  EXPECT_EQ(coordinator.generation, id) << "accepting doesn't advance the generation";
  EXPECT_EQ(coordinator.active.project_id, "p2-canonical");
  EXPECT_EQ(coordinator.active.scene_uri, "b.usda") << "an empty resolved scene keeps the plan's";
  EXPECT_EQ(coordinator.active.workspace, "dev");
  EXPECT_EQ(coordinator.active.active_layer, "layer.usda");
  EXPECT_EQ(coordinator.active.host, "render");
  EXPECT_EQ(coordinator.active.port, 50051) << "the merged record is normalised";
  EXPECT_EQ(coordinator.active.selection, (std::vector<std::string>{"/b", "/c"}));
  EXPECT_EQ(coordinator.active.tick, 9u);
  EXPECT_TRUE(coordinator.active.pause_on_open);
  EXPECT_FALSE(coordinator.accept(id, resolved)) << "a plan is accepted once";
}

TEST_F(SwitchCoordinatorTest, KeepActiveVisiblePlansEndOnlyByFailureOrSupersession) {
  const std::uint64_t id = coordinator.begin(scope("p2", "b.usda"), true)->id;
  EXPECT_FALSE(coordinator.accept(id, scope("p2", "b.usda")));
  EXPECT_TRUE(coordinator.is_current(id));
  EXPECT_TRUE(coordinator.fail(id));
  EXPECT_FALSE(coordinator.is_current(id));
  EXPECT_EQ(coordinator.generation, id) << "failing doesn't advance the generation";
  EXPECT_EQ(coordinator.active, scope("p1", "a.usda"));
}

TEST_F(SwitchCoordinatorTest, IdZeroNeverNamesASwitch) {
  EXPECT_FALSE(coordinator.is_current(0));
  EXPECT_FALSE(coordinator.accept(0, ClientTarget{}));
  EXPECT_FALSE(coordinator.fail(0));
  coordinator.begin(scope("p2", "b.usda"), false);
  EXPECT_FALSE(coordinator.accept(0, ClientTarget{}));
}

TEST_F(SwitchCoordinatorTest, ResetKillsEveryEarlierId) {
  const std::uint64_t id = coordinator.begin(scope("p2", "b.usda"), false)->id;
  coordinator.reset_active(scope("p9", "z.usda", ""));
  EXPECT_EQ(coordinator.generation, id + 1);
  EXPECT_FALSE(coordinator.plan.has_value());
  EXPECT_FALSE(coordinator.accept(id, ClientTarget{}));
  EXPECT_EQ(coordinator.active, scope("p9", "z.usda", "main"));
}

TEST_F(SwitchCoordinatorTest, GenerationWrapsPastZero) {
  coordinator.generation = std::numeric_limits<std::uint64_t>::max() - 1;
  EXPECT_EQ(coordinator.begin(scope("p2", "b.usda"), false)->id,
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(coordinator.begin(scope("p3", "c.usda"), false)->id, 1u);
  coordinator.generation = std::numeric_limits<std::uint64_t>::max();
  coordinator.reset_active(scope("p1", "a.usda"));
  EXPECT_EQ(coordinator.generation, 1u);
}

TEST(DestinationPickerCopyTest, ListsElevenFieldsInOrder) {
  EXPECT_STREQ(kProjectPickerCopy.field(0), "Projects");
  EXPECT_STREQ(kWorkspacePickerCopy.field(0), "Workspaces");
  EXPECT_STREQ(kProjectPickerCopy.field(5), "Couldn\xE2\x80\x99t Load Projects");
  EXPECT_STREQ(kWorkspacePickerCopy.field(10), "New Workspace");
  EXPECT_STREQ(kProjectPickerCopy.field(10), "New Project");
  EXPECT_STREQ(kProjectPickerCopy.field(11), "");
  EXPECT_STREQ(kProjectPickerCopy.field(-1), "");
  for (std::int32_t field = 0; field < DestinationPickerCopy::kFieldCount; ++field) {
    EXPECT_STRNE(kWorkspacePickerCopy.field(field), "") << "field " << field;
  }
}

}  // namespace
}  // namespace orvan::client
