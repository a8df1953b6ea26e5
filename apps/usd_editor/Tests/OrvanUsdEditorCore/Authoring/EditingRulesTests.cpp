// Names of new and moved prims, and which prims the hierarchy may change.
#include <gtest/gtest.h>

#include <map>

#include "Authoring/InstanceRules.h"
#include "Authoring/PrimNames.h"
#include "Support/StageBuilders.h"

namespace orvan::editor {
namespace {

TEST(PrimNamesTest, SanitizedNames) {
  const std::pair<const char*, const char*> rows[] = {
      {"2 fast!", "_2_fast_"},
      {"Chair", "Chair"},
      {"a-b.c", "a_b_c"},
      {"", ""},
      {"Stuhl_\u00e4\u00df", "Stuhl_\u00e4\u00df"},
      {"\u0663x", "_\u0663x"},
      {"tab\there", "tab_here"},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(sanitizePrimName(text), expected) << text;
}

TEST(PrimNamesTest, DuplicateNamesRestartFromTheBase) {
  const std::pair<const char*, const char*> bases[] = {
      {"Chair_copy", "Chair"},
      {"Chair_COPY", "Chair"},
      {"Chair_7", "Chair"},
      {"Chair_7b", "Chair_7b"},
      {"_12", "Prim"},
      {"Box_copy_3", "Box_copy"},
      {"", "Prim"},
  };
  for (const auto& [name, base] : bases)
    EXPECT_EQ(duplicatePrimBaseName(name), base) << name;

  const std::unordered_set<std::string> stage{"/World/Chair", "/World/Chair_1", "/World/Chair_3"};
  auto exists = [&](const std::string& path) { return stage.contains(path); };
  std::unordered_set<std::string> reserved;
  EXPECT_EQ(nextDuplicatePrimName("Chair", "/World", exists, reserved), "Chair_2");
  EXPECT_EQ(nextDuplicatePrimName("Chair", "/World", exists, reserved), "Chair_4")
      << "a second copy of the same selection does not collide with the first";
  EXPECT_EQ(nextDuplicatePrimName("Chair", "/", exists, reserved), "Chair_1");
  EXPECT_TRUE(reserved.contains("/Chair_1"));

  std::unordered_set<std::string> moving;
  EXPECT_EQ(uniquePrimName("Table", "/World", exists, moving), "Table");
  EXPECT_EQ(uniquePrimName("Table", "/World", exists, moving), "Table_1");
  EXPECT_EQ(uniquePrimName("Chair", "/World", exists, moving), "Chair_2");
}

TEST(PrimNamesTest, PathPieces) {
  EXPECT_EQ(childPrimPath("/", "A"), "/A");
  EXPECT_EQ(childPrimPath("/World", "A"), "/World/A");
  EXPECT_EQ(parentPrimPath("/World/A/B"), "/World/A");
  EXPECT_EQ(parentPrimPath("/World"), "");
  EXPECT_EQ(primNameOfPath("/World/A/B"), "B");
}

// /World, /World/Set (an instance root) with /World/Set/Leg (a proxy) and /World/Set/Leg/Foot,
// /World/Lamp, /World/Lamp/Bulb (a component row), /World/Preview (a store preview),
// /World/Nested (instanceable proxy: not a root).
class HierarchyEditRulesTest : public ::testing::Test {
 protected:
  HierarchyEditRulesTest() {
    add("/World");
    add("/World/Set").instanceable = true;
    add("/World/Set/Leg").instanceProxy = true;
    add("/World/Set/Leg/Foot").instanceProxy = true;
    add("/World/Lamp");
    add("/World/Lamp/Bulb").badges = {"component"};
    add("/World/Preview");
    UsdPrimDetail& nested = add("/World/Nested");
    nested.instanceable = true;
    nested.instanceProxy = true;
    add("/World/Nested/Child");
  }
  UsdPrimDetail& add(const std::string& path) {
    return prims_[path] = testing::makePrimDetail(path, "Xform");
  }
  HierarchyEditRules rules() const {
    return HierarchyEditRules(
        [this](std::string_view path) -> const UsdPrimDetail* {
          const auto found = prims_.find(std::string(path));
          return found == prims_.end() ? nullptr : &found->second;
        },
        [](std::string_view path) { return path == "/World/Preview"; });
  }
  static PrimAtomicOperation operation(PrimOperationKind kind, std::string source,
                                       std::string parent = "/World") {
    PrimAtomicOperation op;
    op.kind = kind;
    op.sourcePath = std::move(source);
    op.parentPath = std::move(parent);
    op.primName = "X";
    return op;
  }

  std::map<std::string, UsdPrimDetail> prims_;
};

TEST_F(HierarchyEditRulesTest, OnlySceneContentMayBeEdited) {
  const HierarchyEditRules editRules = rules();
  EXPECT_TRUE(editRules.canEditHierarchyPath("/World/Lamp"));
  EXPECT_TRUE(editRules.canEditHierarchyPath("/World/Set")) << "the instance root itself";
  for (const char* path :
       {"/World", "", "/World/Set/Leg", "/World/Lamp/Bulb", "/World/Preview", "/World/Missing"}) {
    EXPECT_FALSE(editRules.canEditHierarchyPath(path)) << path;
  }
}

TEST_F(HierarchyEditRulesTest, InstanceRootsLockWhatIsBelowThem) {
  const HierarchyEditRules editRules = rules();
  EXPECT_EQ(editRules.instanceRootPathLocking("/World/Set/Leg/Foot"), "/World/Set");
  EXPECT_EQ(editRules.instanceRootPathLocking("/World/Set"), std::nullopt)
      << "the path itself is not tested";
  EXPECT_EQ(editRules.instanceRootPathLockingParent("/World/Set"), "/World/Set");
  EXPECT_EQ(editRules.instanceRootPathLocking("/World/Nested/Child"), std::nullopt)
      << "an instanceable proxy is no root";
  EXPECT_TRUE(editRules.isInstanceProxyPath("/World/Set/Leg"));
  EXPECT_TRUE(editRules.isInstanceProxyPath("/World/Nested"));
  EXPECT_FALSE(editRules.isInstanceProxyPath("/World"));
  EXPECT_FALSE(editRules.isInstanceProxyPath("/World/Set"));
}

TEST_F(HierarchyEditRulesTest, RefusalsPerKindInTheirWords) {
  const HierarchyEditRules editRules = rules();
  const std::string locked = "Part of an instance \u2014 disable Instance on Set to edit it";
  const std::string insert = "Can't add inside an instance \u2014 disable Instance on Set first";
  using K = PrimOperationKind;
  struct Row {
    PrimAtomicOperation operation;
    std::optional<std::string> refusal;
  };
  const Row rows[] = {
      {operation(K::deletePrim, "/World/Set/Leg"), locked},
      {operation(K::rename, "/World/Set/Leg/Foot"), locked},
      {operation(K::setInstanceable, "/World/Set/Leg"), locked},
      {operation(K::deletePrim, "/World/Set"), std::nullopt},
      {operation(K::setInstanceable, "/World/Set"), std::nullopt},
      {operation(K::deletePrim, "/World"), std::nullopt},
      {operation(K::deletePrim, "/World/Nested"), "Part of an instance and read-only"},
      {operation(K::duplicate, "/World/Set/Leg"), locked},
      {operation(K::duplicate, "/World/Lamp", "/World/Set"), insert},
      {operation(K::reparent, "/World/Lamp", "/World/Set/Leg"), insert},
      {operation(K::reparent, "/World/Lamp", "/World"), std::nullopt},
      {operation(K::add, "", "/World/Set"), insert},
      {operation(K::reference, "", "/World/Set/Leg"), insert},
      {operation(K::payload, "", "/World/Lamp"), std::nullopt},
      {operation(K::reset, "/World/Set/Leg"), std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(editRules.instanceGateRefusal(row.operation), row.refusal)
        << rawWord(row.operation.kind) << " " << row.operation.sourcePath;
  }
  EXPECT_EQ(editRules.instanceInsertRefusalStatus("/World/Lamp"), "Can't add inside an instance");

  const AtomicOperation component{ComponentAtomicOperation{.kind = ComponentOperationKind::set,
                                                           .entityPath = "/World/Set/Leg",
                                                           .componentType = "Light",
                                                           .propertyName = "k",
                                                           .value = "1"}};
  EXPECT_EQ(editRules.instanceGateRefusal(component), locked);
  UsdPropertyAtomicOperation property{.kind = UsdPropertyOperationKind::set,
                                      .primPath = "/World/Set/Leg",
                                      .propertyName = "x",
                                      .value = "1"};
  EXPECT_EQ(editRules.instanceGateRefusal(AtomicOperation{property}), locked);
  property.kind = UsdPropertyOperationKind::reset;
  EXPECT_EQ(editRules.instanceGateRefusal(AtomicOperation{property}), std::nullopt)
      << "a reset passes everywhere";
  EXPECT_EQ(editRules.instanceGateRefusal(AtomicOperation{HistoryAtomicOperation{}}), std::nullopt);
}

}  // namespace
}  // namespace orvan::editor
