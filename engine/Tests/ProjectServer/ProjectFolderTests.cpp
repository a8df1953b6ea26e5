// Which folders make a project, which scene a request may name, and the command line.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <unistd.h>

#include "ProjectServer/Credentials.h"
#include "ProjectServer/ProjectAssets.h"
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

TEST_F(ProjectServerFolderTest, TheAssetListStaysInsideTheFolderWhateverLinksSay) {
  write("Game/main.usda", "#usda 1.0\n");
  write("Game/textures/wood.png", "png");
  write("Game/.git/config", "x");
  write("secret/passwords.txt", "x");
  fs::create_symlink(base_ / "Game/textures/wood.png", base_ / "Game/wood_link.png");
  fs::create_symlink("../secret/passwords.txt", base_ / "Game/stolen.txt");
  fs::create_symlink(base_ / "secret", base_ / "Game/secret_folder");
  fs::create_symlink(base_ / "Game/textures", base_ / "Game/textures_again");
  fs::create_symlink(base_ / "nowhere", base_ / "Game/dangling.png");

  std::vector<std::string> paths;
  for (const auto& row : listProjectAssets(base_ / "Game"))
    paths.push_back(row.path);
  EXPECT_EQ(paths, (std::vector<std::string>{"main.usda", "textures/wood.png", "wood_link.png"}));

  // The scan's signature moves with any file's content, and only then.
  const std::uint64_t before = scanProjectFiles(base_ / "Game").signature;
  EXPECT_EQ(scanProjectFiles(base_ / "Game").signature, before);
  write("Game/textures/wood.png", "a bigger png");
  EXPECT_NE(scanProjectFiles(base_ / "Game").signature, before);
}

TEST(ProjectServerCommandLineTest, ReadsEveryOptionAndRefusesWhatItCannotUse) {
  const auto line =
      parseServerCommandLine({"--project", "a", "--port", "0", "--project", "b", "--host", "::1",
                              "--token-file", "t", "--password-file", "p", "--public-url",
                              "https://Projects.example:8443/", "--state-dir", "s"});
  ASSERT_TRUE(line.ok()) << line.error();
  EXPECT_EQ(line->projects, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(line->port, 0);
  EXPECT_EQ(line->host, "::1");
  EXPECT_EQ(line->tokenFile, "t");
  EXPECT_EQ(line->passwordFile, "p");
  EXPECT_EQ(line->publicURL, "https://Projects.example:8443");
  EXPECT_EQ(line->stateDir, "s");

  const auto token = parseServerCommandLine({"--project", "a", "--token", "t"});
  ASSERT_FALSE(token.ok());
  EXPECT_NE(token.error().find("ORVAN_SERVER_TOKEN"), std::string::npos) << token.error();

  for (const std::vector<std::string>& refused :
       std::vector<std::vector<std::string>>{{},
                                             {"--project"},
                                             {"--project", "a", "--port", "65536"},
                                             {"--project", "a", "--port", "-1"},
                                             {"--project", "a", "--token-file", "  "},
                                             {"--project", "a", "--public-url", "ftp://host"},
                                             {"--project", "a", "--public-url", "host:8787"},
                                             {"--project", "a", "extra"}}) {
    EXPECT_FALSE(parseServerCommandLine(refused).ok()) << testing::PrintToString(refused);
  }

  const auto revoke = parseSessionsCommandLine({"revoke", "0123abcd", "--state-dir", "s"});
  ASSERT_TRUE(revoke.ok()) << revoke.error();
  EXPECT_EQ(revoke->action, SessionsCommandLine::Action::revoke);
  EXPECT_EQ(revoke->id, "0123abcd");
  EXPECT_EQ(revoke->stateDir, "s");
  EXPECT_EQ(parseSessionsCommandLine({"list"})->action, SessionsCommandLine::Action::list);
  for (const std::vector<std::string>& refused : std::vector<std::vector<std::string>>{
           {}, {"revoke"}, {"list", "x"}, {"drop", "x"}, {"list", "--state-dir"}}) {
    EXPECT_FALSE(parseSessionsCommandLine(refused).ok()) << testing::PrintToString(refused);
  }
}

TEST_F(ProjectServerFolderTest, SecretsComeFromTheirFilesFirstThenFromTheEnvironment) {
  write("token", "  from-file \nsecond line\n");
  write("empty", "\n");
  std::map<std::string, std::string> variables{{"ORVAN_SERVER_TOKEN", " from-env "},
                                               {"ORVAN_SERVER_PASSWORD", "pw"},
                                               {"HOME", "/home/someone"}};
  const Environment environment = [&](const char* name) -> const char* {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  };
  ServerCommandLine line{.projects = {"a"}};
  EXPECT_EQ(loadServerSecrets(line, environment)->token, "from-env");
  EXPECT_EQ(loadServerSecrets(line, environment)->password, "pw");
  line.tokenFile = (base_ / "token").string();
  EXPECT_EQ(loadServerSecrets(line, environment)->token, "from-file");
  line.tokenFile = (base_ / "empty").string();
  EXPECT_FALSE(loadServerSecrets(line, environment).ok());
  line.tokenFile = (base_ / "missing").string();
  EXPECT_FALSE(loadServerSecrets(line, environment).ok());

  EXPECT_EQ(stateFolder("", environment), "/home/someone/.local/state/orvan-project-server");
  variables["XDG_STATE_HOME"] = "/state";
  EXPECT_EQ(stateFolder("", environment), "/state/orvan-project-server");
  EXPECT_EQ(stateFolder("mine", environment), "mine");

  EXPECT_TRUE(sameSecret("abc", "abc"));
  EXPECT_FALSE(sameSecret("abd", "abc"));
  EXPECT_FALSE(sameSecret("abcd", "abc"));
  EXPECT_FALSE(sameSecret("", ""));
}

}  // namespace
}  // namespace orvan::engine
