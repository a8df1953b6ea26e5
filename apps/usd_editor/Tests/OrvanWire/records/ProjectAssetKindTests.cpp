#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "orvan/wire/records/ProjectAssetKind.h"

namespace orvan::editor {
namespace {

TEST(ProjectAssetKindTest, TheLastExtensionDecidesWithoutRegardToCase) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Scenes/Main.usda", "USD"},    {"pack.UsdZ", "USDZ"}, {"mesh.usdc", "Mesh"},
      {"Props\\crate.FBX", "Mesh"},   {"t.JPE", "Image"},    {"level.json", "Data"},
      {"archive.tar.gz", "File"},     {"Makefile", "File"},  {"trailing.", "File"},
      {".gitignore", "File"},         {"Dir/.png", "File"},  {".hidden.png", "Image"},
      {"Scenes.usda/readme", "File"}, {"", "File"},
  };
  for (const auto& [path, kind] : cases)
    EXPECT_EQ(projectAssetKind(path), kind) << path;
}

}  // namespace
}  // namespace orvan::editor
