#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Assets/ProjectAssetList.h"
#include "Assets/ProjectAssetPaths.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

TEST(ProjectAssetListTest, ListsTheUsersFilesSortedWithoutGeneratedOrHiddenOnes) {
  const testing::TemporaryFolder project;
  for (const char* file :
       {"project.json", "Scenes/Main.usda", "props/crate.FBX", "Assets/b.png", "Assets/.hidden.png",
        ".DS_Store", ".git/config", "Build/out.bin", "Cooked/a.pak", "Contents/x.usda",
        ".derived/mesh.bin", "Props/Build/keep.usda", "Sub/project.json", "readme"}) {
    project.write(file, "x");
  }
  const std::vector<ProjectAssetItem> rows = projectAssetList(project.path());

  std::vector<std::string> paths;
  for (const ProjectAssetItem& item : rows)
    paths.push_back(item.path);
  EXPECT_EQ(paths,
            (std::vector<std::string>{"Assets/b.png", "Props/Build/keep.usda", "props/crate.FBX",
                                      "readme", "Scenes/Main.usda", "Sub/project.json"}));
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[1], (ProjectAssetItem{.path = "Props/Build/keep.usda",
                                       .name = "keep.usda",
                                       .folder = "Props/Build",
                                       .kind = "USD"}));
  EXPECT_EQ(rows[3].folder, "") << "a file at the root has the root folder";
  EXPECT_EQ(rows[2].kind, "Mesh");

  EXPECT_TRUE(projectAssetList(project / "missing").empty());
  EXPECT_TRUE(projectAssetList(project / "readme").empty()) << "a file is no project folder";
}

TEST(PortableProjectReferenceTest, ScenesBecomeRelativeToTheirProject) {
  EXPECT_EQ(portableProjectSceneReference("/p/Game/", "/p/Game/./Scenes//Main.usda"),
            "Scenes/Main.usda");
  EXPECT_EQ(portableProjectSceneReference("C:\\p\\Game", "C:\\p\\Game\\Scenes\\a.usda"),
            "Scenes/a.usda");
  EXPECT_EQ(portableProjectSceneReference("/p/Game", "/p/GameOld/a.usda"), "/p/GameOld/a.usda")
      << "a folder that only starts with the root's name is outside it";
  EXPECT_EQ(portableProjectSceneReference("/p/Game", "D:\\other\\a.usda"), "D:/other/a.usda");
  EXPECT_EQ(portableProjectSceneReference(" ", "/p/Game/a.usda"), "/p/Game/a.usda");
  EXPECT_EQ(portableProjectSceneReference("/p/Game", "/p/Game"), "/p/Game");

  const std::vector<std::pair<std::string, std::string>> compact{
      {"./Scenes/a.usda", "Scenes/a.usda"},
      {"/Users/x/Game.OrvanProject/Scenes/../Levels/a.usda", "Levels/a.usda"},
      {"a/../../c.usda", "../c.usda"},
      {"C:/p/../q/a.usda", "C:/q/a.usda"},
      {"Game.orvanproject/", ""},
      {"./", ""},
  };
  for (const auto& [reference, expected] : compact) {
    EXPECT_EQ(compactPortableProjectSceneReference(reference), expected) << reference;
  }
  EXPECT_TRUE(isCompactProjectReference("Levels/a.usda"));
  for (const char* notCompact : {"", "/x/a.usda", "C:/q/a.usda", "../c.usda", ".."}) {
    EXPECT_FALSE(isCompactProjectReference(notCompact)) << notCompact;
  }
}

TEST(PortableProjectReferenceTest, StageAssetReferencesResolveInsideTheProject) {
  const std::string root = "/p/Game";
  const std::string scene = "Scenes/Levels/one.usda";
  const auto resolve = [&](const std::string& path) {
    return projectRelativeStageAssetPath(path, root, scene);
  };
  EXPECT_EQ(resolve("./tex/wood.png"), "Scenes/Levels/tex/wood.png");
  EXPECT_EQ(resolve("..\\Shared\\a.usda"), "Scenes/Shared/a.usda");
  EXPECT_EQ(resolve("Assets/Images/a.png"), "Assets/Images/a.png");
  EXPECT_EQ(resolve(" /p/Game/Assets/a.png\n"), "Assets/a.png");
  EXPECT_EQ(resolve(".derived/meshes/../a.bin"), ".derived/meshes/../a.bin");
  EXPECT_EQ(resolve("Props/pack.usdz:textures/a.png"), "Props/pack.usdz");
  EXPECT_EQ(projectRelativeStageAssetPath("./a.png", root, "/p/Game/Scenes/one.usda"),
            "Scenes/a.png");
  EXPECT_EQ(projectRelativeStageAssetPath("C:\\p\\Game\\a.png", "C:/p/Game", scene), "a.png");

  for (const char* notAFile : {"usdprim:/World/Lamp", "/World/Props/Crate", "store://items/chair",
                               "/elsewhere/a.png", "../../../../x.png", "  ", "Assets/"}) {
    EXPECT_EQ(resolve(notAFile), std::nullopt) << notAFile;
  }
  EXPECT_EQ(resolve("/Worlds/a.usda"), std::nullopt) << "outside the root, not a prim";
  EXPECT_EQ(projectRelativeStageAssetPath("/p/Game/Worlds/a.usda", root, scene), "Worlds/a.usda");
}

TEST(ProjectAssetFolderTest, FoldersResolveToTheBestAvailableMatch) {
  const std::vector<std::string> folders{"", "Assets", "Assets/Images", "Scenes"};
  EXPECT_EQ(resolvedProjectAssetFolder("Scenes", folders), "Scenes");
  EXPECT_EQ(resolvedProjectAssetFolder("assets/images/", folders), "Assets/Images");
  EXPECT_EQ(resolvedProjectAssetFolder("Assets/Images/New/Deep", folders), "Assets/Images");
  EXPECT_EQ(resolvedProjectAssetFolder("Other/Place", folders), "Other/Place")
      << "the root contains everything, so it matches nothing";
  EXPECT_EQ(resolvedProjectAssetFolder("AssetsMore", folders), "AssetsMore");

  EXPECT_EQ(canonicalProjectAssetFolder("Props/Crates/a.usda", "Elsewhere"), "Props/Crates");
  EXPECT_EQ(canonicalProjectAssetFolder("Props\\a.usda", ""), "Props");
  EXPECT_EQ(canonicalProjectAssetFolder("/a.usda", "Elsewhere"), "");
  EXPECT_EQ(canonicalProjectAssetFolder("a.usda", "/Shared/./Props/"), "Shared/Props");
}

}  // namespace
}  // namespace orvan::editor
