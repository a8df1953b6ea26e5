// Which folders make a project, which scene a request may name, and the command line.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "ProjectServer/ProjectFolder.h"
#include "ProjectServer/ServerCommandLine.h"

namespace orvan::engine {
namespace {

namespace fs = std::filesystem;

class ProjectServerFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    base_ =
        fs::temp_directory_path() / ("orvan_project_folder_" + std::to_string(::getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(base_);
    fs::create_directories(base_ / "Game");
    base_ = fs::canonical(base_);
  }
  void TearDown() override { fs::remove_all(base_); }

  void write(const fs::path& relative, const std::string& text) const {
    fs::create_directories((base_ / relative).parent_path());
    std::ofstream(base_ / relative, std::ios::binary) << text;
  }

  std::string loadError(const fs::path& folder) const {
    const auto loaded = loadProjectFolder(base_ / folder);
    return loaded.ok() ? "loaded" : loaded.error();
  }

  fs::path base_;
};

TEST_F(ProjectServerFolderTest, WithoutManifestTheFolderNamesTheProjectAndTheFirstSceneIsMain) {
  write("Game/b.usda", "#usda 1.0\n");
  write("Game/B.usda", "#usda 1.0\n");
  write("Game/.a.usda", "#usda 1.0\n");
  write("Game/a.usda/inner.usda", "#usda 1.0\n");  // a folder named like a scene is no scene
  write("Game/notes.txt", "x");

  const auto loaded = loadProjectFolder(base_ / "Game" / ".");
  ASSERT_TRUE(loaded.ok()) << loaded.error();
  EXPECT_EQ(loaded->name, "Game");
  EXPECT_EQ(loaded->root, base_ / "Game");
  EXPECT_EQ(loaded->mainScene, "B.usda") << "byte order puts capitals first";
}

TEST_F(ProjectServerFolderTest, TheManifestNamesTheProjectAndItsMainScene) {
  write("Game/first.usda", "#usda 1.0\n");
  write("Game/Scenes/Level.usda", "#usda 1.0\n");
  write("Game/project.json",
        R"({"id": "game-1", "name": " Game One ", "mainScene": "./Scenes/Level.usda"})");
  const auto loaded = loadProjectFolder(base_ / "Game");
  ASSERT_TRUE(loaded.ok()) << loaded.error();
  EXPECT_EQ(loaded->id, "game-1");
  EXPECT_EQ(loaded->name, "Game One");
  EXPECT_EQ(loaded->mainScene, "Scenes/Level.usda");

  write("Game/project.json", R"({"name": "Only a name"})");
  const auto partial = loadProjectFolder(base_ / "Game");
  ASSERT_TRUE(partial.ok()) << partial.error();
  EXPECT_EQ(partial->id, "Game");
  EXPECT_EQ(partial->mainScene, "first.usda");
}

TEST_F(ProjectServerFolderTest, UnusableFoldersAreRefusedWithTheReason) {
  EXPECT_NE(loadError("Missing").find("does not exist"), std::string::npos);
  write("file.usda", "#usda 1.0\n");
  EXPECT_NE(loadError("file.usda").find("is not a folder"), std::string::npos);
  EXPECT_NE(loadError("Game").find("has no .usda scene"), std::string::npos);

  write("outside.usda", "#usda 1.0\n");
  write("Game/inside.usda", "#usda 1.0\n");
  write("Game/project.json", R"({"mainScene": "../outside.usda"})");
  EXPECT_NE(loadError("Game").find("'../outside.usda' is not a file inside"), std::string::npos);
  write("Game/project.json", R"({"id": 7})");
  EXPECT_NE(loadError("Game").find("project.json: expected string at project.id"),
            std::string::npos)
      << loadError("Game");
  write("Game/project.json", "{\"id\": ");
  EXPECT_NE(loadError("Game").find("malformed JSON"), std::string::npos) << loadError("Game");
}

TEST_F(ProjectServerFolderTest, RequestedScenesMustBeFilesInsideTheFolder) {
  write("Game/main.usda", "#usda 1.0\n");
  write("Game/Scenes/level.usda", "#usda 1.0\n");
  write("Game2/other.usda", "#usda 1.0\n");
  write("secret.usda", "#usda 1.0\n");
  fs::create_symlink(base_ / "secret.usda", base_ / "Game" / "link.usda");
  const auto project = loadProjectFolder(base_ / "Game");
  ASSERT_TRUE(project.ok()) << project.error();

  EXPECT_EQ(resolveProjectScene(*project, "Scenes/level.usda"), "Scenes/level.usda");
  EXPECT_EQ(resolveProjectScene(*project, " ./Scenes\\level.usda "), "Scenes/level.usda");
  EXPECT_EQ(resolveProjectScene(*project, "Scenes/../main.usda"), "main.usda");
  EXPECT_EQ(resolveProjectScene(*project, (base_ / "Game/Scenes/level.usda").string()),
            "Scenes/level.usda");
  for (const std::string& escape : std::vector<std::string>{
           "../secret.usda", "Scenes/../../secret.usda", "../Game2/other.usda", "link.usda",
           (base_ / "secret.usda").string(), (base_ / "Game2/other.usda").string(), "Scenes", "",
           "missing.usda", "/etc/passwd"}) {
    EXPECT_EQ(resolveProjectScene(*project, escape), std::nullopt) << escape;
  }
  EXPECT_TRUE(isProjectRoot(*project, (base_ / "Game/").string()));
  EXPECT_TRUE(isProjectRoot(*project, (base_ / "Game2/../Game").string()));
  EXPECT_FALSE(isProjectRoot(*project, (base_ / "Game2").string()));
}

TEST(ProjectServerCommandLineTest, ReadsEveryOptionAndRefusesWhatItCannotUse) {
  const auto line = parseServerCommandLine(
      {"--project", "a", "--port", "0", "--project", "b", "--host", "::1", "--token", " t "});
  ASSERT_TRUE(line.ok()) << line.error();
  EXPECT_EQ(line->projects, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(line->port, 0);
  EXPECT_EQ(line->host, "::1");
  EXPECT_EQ(line->token, "t") << "the editor sends its token trimmed";

  for (const std::vector<std::string>& refused :
       std::vector<std::vector<std::string>>{{},
                                             {"--project"},
                                             {"--project", "a", "--port", "65536"},
                                             {"--project", "a", "--port", "-1"},
                                             {"--project", "a", "--token", "  "},
                                             {"--project", "a", "extra"}}) {
    EXPECT_FALSE(parseServerCommandLine(refused).ok()) << testing::PrintToString(refused);
  }
}

}  // namespace
}  // namespace orvan::engine
