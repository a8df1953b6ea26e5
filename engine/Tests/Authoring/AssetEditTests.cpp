// Asset operations on the scene's asset library, read back as the inspector's assets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AuthoringFixture.h"

namespace orvan::engine::testing {
namespace {

using ::testing::HasSubstr;

EditOperation assetOp(AssetOperationKind kind, std::string name, std::string assetKind = "",
                      std::string source = "", std::string store = "") {
  EditOperation operation;
  operation.type = OperationType::Asset;
  operation.kind = kind;
  operation.name = std::move(name);
  operation.assetKind = std::move(assetKind);
  operation.sourceURI = std::move(source);
  operation.storeURI = std::move(store);
  return operation;
}

const editor::UsdAsset* assetNamed(const InspectResult& result, std::string_view name) {
  for (const editor::UsdAsset& asset : result.inspection.assets) {
    if (asset.name == name)
      return &asset;
  }
  return nullptr;
}

TEST_F(AuthoringTest, AssetsAreAddedReplacedAndRemovedInTheLibrary) {
  const EditResult added = apply(
      {assetOp(AssetOperationKind::Replace, "Crate", "mesh", "./asset.usda", "store://crate")});
  ASSERT_TRUE(added.accepted) << added.message;
  EXPECT_EQ(added.message, "Added asset Crate");
  {
    const InspectResult inspected = inspectScene(*scene);
    const auto* crate = assetNamed(inspected, "Crate");
    ASSERT_NE(crate, nullptr);
    EXPECT_EQ(crate->kind, "mesh");
    EXPECT_EQ(crate->path, "/World/OrvanAssets/Meshes/Crate");
    EXPECT_EQ(findPrimDetail(inspected, "/World/OrvanAssets")->typeName, "Scope");
    EXPECT_NE(findPrimDetail(inspected, "/World/OrvanAssets/Meshes/Crate/Bulb"), nullptr);
  }
  const EditResult replaced =
      apply({assetOp(AssetOperationKind::Replace, "Crate", "mesh", "./other.usda")});
  ASSERT_TRUE(replaced.accepted) << replaced.message;
  EXPECT_EQ(replaced.message, "Replaced asset Crate");
  EXPECT_THAT(rootText(), HasSubstr("prepend references = @./other.usda@"));
  EXPECT_THAT(rootText(), ::testing::Not(HasSubstr("store://crate")));

  ASSERT_TRUE(
      apply({assetOp(AssetOperationKind::Replace, "Gold", "material", "./asset.usda")}).accepted);
  EXPECT_EQ(assetNamed(inspectScene(*scene), "Gold")->kind, "material");

  const EditResult removed = apply({assetOp(AssetOperationKind::Remove, "Crate")});
  ASSERT_TRUE(removed.accepted) << removed.message;
  EXPECT_EQ(removed.message, "Removed asset Crate");
  EXPECT_EQ(scene->composedPrim("/World/OrvanAssets/Meshes/Crate"), nullptr);
}

TEST_F(AuthoringTest, AssetRefusalsChangeNothing) {
  const auto texts = allTexts(*scene);
  EXPECT_EQ(apply({assetOp(AssetOperationKind::Remove, "Nope")}).message,
            "No asset named Nope in the scene");
  EXPECT_EQ(apply({assetOp(AssetOperationKind::Replace, "Clip", "sound", "a.wav")}).message,
            "Assets of kind 'sound' are not kept in the scene");
  EXPECT_EQ(apply({assetOp(AssetOperationKind::Replace, "Two words", "mesh", "a.usda")}).message,
            "'Two words' is not a valid asset name");
  EXPECT_EQ(apply({assetOp(AssetOperationKind::Replace, "Crate", "mesh", "")}).message,
            "The asset Crate needs a source");
  EXPECT_EQ(allTexts(*scene), texts);
}

}  // namespace
}  // namespace orvan::engine::testing
