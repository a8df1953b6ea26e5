#include <gtest/gtest.h>

#include "Presentation/HierarchyIndex.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

TEST(HierarchyIndexTest, EveryEntryKnowsItsParentRowAndChildren) {
  auto stage = std::make_shared<const StageInspection>(testing::makeTreeStage(3, 4, 2));
  const auto index = HierarchyIndex::build(stage);
  ASSERT_EQ(index->entryCount(), 1u + 3 + 12 + 24);
  EXPECT_EQ(index->childCount(HierarchyIndex::kRoot), 3u);
  // Walk the whole tree through the index and compare with the stage itself.
  std::size_t visited = 0;
  auto check = [&](auto& self, std::uint32_t id, const std::vector<UsdPrimNode>& nodes) -> void {
    ASSERT_EQ(index->childCount(id), nodes.size());
    for (std::size_t row = 0; row < nodes.size(); ++row) {
      const std::uint32_t child = index->child(id, row);
      const auto& entry = index->entry(child);
      EXPECT_EQ(entry.node, &nodes[row]);
      EXPECT_EQ(entry.parent, id);
      EXPECT_EQ(entry.row, row);
      EXPECT_EQ(index->entryForPath(nodes[row].path), child);
      ++visited;
      self(self, child, nodes[row].children);
    }
  };
  check(check, HierarchyIndex::kRoot, stage->rootPrims);
  EXPECT_EQ(visited, index->entryCount() - 1);
}

TEST(HierarchyIndexTest, AncestryAndUnknownPaths) {
  const auto index = HierarchyIndex::build(
      std::make_shared<const StageInspection>(testing::makeTreeStage(2, 2, 2)));
  const auto leaf = index->entryForPath("/Root1/Child0/Leaf1");
  ASSERT_TRUE(leaf.has_value());
  std::vector<std::string> chain;
  for (std::uint32_t id : index->ancestry(*leaf))
    chain.push_back(index->entry(id).node->path);
  EXPECT_EQ(chain, (std::vector<std::string>{"/Root1", "/Root1/Child0", "/Root1/Child0/Leaf1"}));
  EXPECT_FALSE(index->entryForPath("/Root1/Child9").has_value());
  EXPECT_FALSE(index->entryForPath("").has_value());
}

TEST(HierarchyIndexTest, EmptyStageHasOnlyTheInvisibleRoot) {
  const auto index = HierarchyIndex::build(std::make_shared<const StageInspection>());
  EXPECT_EQ(index->entryCount(), 1u);
  EXPECT_EQ(index->childCount(HierarchyIndex::kRoot), 0u);
}

}  // namespace
}  // namespace orvan::editor
