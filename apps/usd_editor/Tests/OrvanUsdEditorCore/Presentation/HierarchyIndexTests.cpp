#include <gtest/gtest.h>

#include <functional>
#include <map>

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

// A view skips subtrees whose digest stayed, so every change a row shows must reach the digests of
// the row and of all rows above it, and of no other.
TEST(HierarchyIndexTest, SubtreeDigestsChangeAlongTheChangedPathOnly) {
  const StageInspection base = testing::makeTreeStage(3, 3, 2);
  const auto digestsOf = [](StageInspection stage) {
    const auto index =
        HierarchyIndex::build(std::make_shared<const StageInspection>(std::move(stage)));
    std::map<std::string, std::uint64_t> digests{{"", index->subtreeDigest(HierarchyIndex::kRoot)}};
    for (std::uint32_t id = 1; id < index->entryCount(); ++id)
      digests[index->entry(id).node->path] = index->subtreeDigest(id);
    return digests;
  };
  const auto before = digestsOf(base);
  StageInspection sameTree = base;
  sameTree.sceneUri = "/elsewhere.usda";
  sameTree.prims.clear();
  EXPECT_EQ(digestsOf(sameTree), before) << "only what the tree shows counts";

  const std::vector<std::function<void(UsdPrimNode&)>> changes{
      [](UsdPrimNode& leaf) { leaf.typeName = "Cone"; },
      [](UsdPrimNode& leaf) { leaf.active = false; },
      [](UsdPrimNode& leaf) { leaf.badges.push_back("entity"); },
      [](UsdPrimNode& leaf) { leaf.name = "Leaf9"; },
      [](UsdPrimNode& leaf) { leaf.children.push_back(leaf); },
  };
  for (std::size_t at = 0; at < changes.size(); ++at) {
    StageInspection changed = base;
    changes[at](changed.rootPrims[1].children[2].children[0]);
    const auto after = digestsOf(changed);
    for (const char* path : {"", "/Root1", "/Root1/Child2"})
      EXPECT_NE(after.at(path), before.at(path)) << "change " << at << " above, at " << path;
    for (const char* path : {"/Root0", "/Root1/Child1", "/Root1/Child2/Leaf1", "/Root2/Child2"})
      EXPECT_EQ(after.at(path), before.at(path)) << "change " << at << " beside, at " << path;
  }
  StageInspection reordered = base;
  std::swap(reordered.rootPrims[2].children[0], reordered.rootPrims[2].children[1]);
  EXPECT_NE(digestsOf(reordered).at("/Root2"), before.at("/Root2")) << "order counts";
}

TEST(HierarchyIndexTest, EmptyStageHasOnlyTheInvisibleRoot) {
  const auto index = HierarchyIndex::build(std::make_shared<const StageInspection>());
  EXPECT_EQ(index->entryCount(), 1u);
  EXPECT_EQ(index->childCount(HierarchyIndex::kRoot), 0u);
}

}  // namespace
}  // namespace orvan::editor
