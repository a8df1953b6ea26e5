#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ServerClient/Records/ProjectAssetKind.h"

namespace orvan::editor {
namespace {

TEST(ProjectAssetKindTest, TheLastExtensionDecidesWithoutRegardToCase) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Scenes/Main.usda", "USD"},
      {"a.USD", "USD"},
      {"pack.UsdZ", "USDZ"},
      {"mesh.usdc", "Mesh"},
      {"Props\\crate.FBX", "Mesh"},
      {"t.JPE", "Image"},
      {"sky.hdr", "Image"},
      {"hit.M4A", "Audio"},
      {"m.orvanmat", "Material"},
      {"walk.bvh", "Animation"},
      {"ui.woff2", "Font"},
      {"Title.TTF", "Font"},
      {"player.luau", "Script"},
      {"tool.py", "Script"},
      {"level.json", "Data"},
      {"archive.tar.gz", "File"},
      {"usda", "File"},
      {"Makefile", "File"},
      {"trailing.", "File"},
      {".gitignore", "File"},
      {"Dir/.png", "File"},
      {".hidden.png", "Image"},
      {"Scenes.usda/readme", "File"},
      {"", "File"},
  };
  for (const auto& [path, kind] : cases)
    EXPECT_EQ(projectAssetKind(path), kind) << path;
}

}  // namespace
}  // namespace orvan::editor
