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
  SwitchCoordinator coordinator{scope("p1", "x.orvanproject/a.usda", "")};
};

TEST_F(SwitchCoordinatorTest, PlansASwitchFromTheNormalisedActiveTarget) {
  EXPECT_EQ(coordinator.active, scope("p1", "a.usda"));
  const std::optional<SwitchPlan> plan = coordinator.begin(scope("p2", "b.usda"), false);
  ASSERT_TRUE(plan.has_value());
  EXPECT_EQ(plan->id, 1u);
  EXPECT_EQ(plan->active, scope("p1", "a.usda"));
  EXPECT_EQ(plan->requested, scope("p2", "b.usda"));
  EXPECT_FALSE(plan->preserves_presented_content);
  EXPECT_TRUE(coordinator.is_current(1));
  EXPECT_EQ(coordinator.visible_target(), scope("p2", "b.usda"))
      << "the destination is presented while the switch runs";

  const std::optional<SwitchPlan> workspace = coordinator.begin(scope("p1", "a.usda", "dev"), true);
  ASSERT_TRUE(workspace.has_value());
  EXPECT_EQ(workspace->id, 2u);
  EXPECT_EQ(workspace->mode, SwitchMode::keep_active_visible);
  EXPECT_TRUE(workspace->preserves_presented_content) << "same scene, other workspace";
  EXPECT_EQ(coordinator.visible_target(), scope("p1", "a.usda"));
  EXPECT_FALSE(coordinator.is_current(1)) << "a later switch makes the earlier id stale";
  EXPECT_FALSE(coordinator.fail(1));
  EXPECT_TRUE(coordinator.is_current(2)) << "a stale failure leaves the new plan standing";
}

TEST_F(SwitchCoordinatorTest, RequestsForNothingOrForTheActiveTargetStartNoSwitch) {
  ClientTarget sameWithSlash = scope("p1", "a.usda");
  sameWithSlash.server_url = "https://a/";
  EXPECT_FALSE(coordinator.begin(sameWithSlash, false).has_value());
  EXPECT_EQ(coordinator.generation, 0u) << "without a plan there is nothing to cancel";

  const std::uint64_t id = coordinator.begin(scope("p2", "b.usda"), false)->id;
  ClientTarget nothing;
  nothing.workspace = "dev";
  nothing.tick = 4;
  EXPECT_FALSE(coordinator.begin(nothing, false).has_value());
  EXPECT_TRUE(coordinator.is_current(id)) << "a request naming nothing changes nothing";

  EXPECT_FALSE(coordinator.begin(sameWithSlash, false).has_value());
  EXPECT_FALSE(coordinator.is_current(id)) << "asking for the active target cancels the switch";
  EXPECT_FALSE(coordinator.accept(id, ClientTarget{}));
  EXPECT_EQ(coordinator.active, scope("p1", "a.usda"));
}

TEST_F(SwitchCoordinatorTest, AcceptMergesTheResolvedFieldsOverTheRequestOnce) {
  ClientTarget requested = scope("p2", "b.usda", "dev");
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
  EXPECT_EQ(coordinator.active.port, 50051) << "the merged record is normalised";
  EXPECT_EQ(coordinator.active.selection, (std::vector<std::string>{"/b", "/c"}));
  EXPECT_EQ(coordinator.active.tick, 9u);
  EXPECT_TRUE(coordinator.active.pause_on_open);
  EXPECT_FALSE(coordinator.accept(id, resolved)) << "a plan is accepted once";
}

TEST_F(SwitchCoordinatorTest, KeepActiveVisiblePlansEndOnlyByFailureOrReset) {
  const std::uint64_t id = coordinator.begin(scope("p2", "b.usda"), true)->id;
  EXPECT_FALSE(coordinator.accept(id, scope("p2", "b.usda")));
  EXPECT_TRUE(coordinator.fail(id));
  EXPECT_FALSE(coordinator.is_current(id));
  EXPECT_EQ(coordinator.generation, id) << "failing doesn't advance the generation";
  EXPECT_EQ(coordinator.active, scope("p1", "a.usda"));

  const std::uint64_t next = coordinator.begin(scope("p2", "b.usda"), true)->id;
  coordinator.reset_active(scope("p9", "z.usda", ""));
  EXPECT_EQ(coordinator.generation, next + 1);
  EXPECT_FALSE(coordinator.fail(next));
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
  EXPECT_STREQ(kProjectPickerCopy.field(5), "Couldn\xE2\x80\x99t Load Projects");
  EXPECT_STREQ(kProjectPickerCopy.field(10), "New Project");
  EXPECT_STREQ(kProjectPickerCopy.field(11), "");
  EXPECT_STREQ(kProjectPickerCopy.field(-1), "");
  for (std::int32_t field = 0; field < DestinationPickerCopy::kFieldCount; ++field) {
    EXPECT_STRNE(kWorkspacePickerCopy.field(field), "") << "field " << field;
  }
}

}  // namespace
}  // namespace orvan::client
