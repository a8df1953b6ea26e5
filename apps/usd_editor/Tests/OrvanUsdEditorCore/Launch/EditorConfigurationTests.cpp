#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Launch/BuildSettings.h"
#include "Launch/EditorConfiguration.h"
#include "Support/TemporaryFolder.h"

namespace orvan::editor {
namespace {

EditorConfiguration parse(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/opt/orvan/OrvanUsdEditor");
  return EditorConfiguration::fromArguments(arguments, "/home/me");
}

TEST(EditorConfigurationTest, NoArgumentsGiveTheDefaults) {
  const EditorConfiguration configuration = EditorConfiguration::fromArguments({}, "/home/me");
  EXPECT_EQ(configuration, parse({}));
  EXPECT_FALSE(configuration.localMode);
  EXPECT_EQ(configuration.workspaceRoot, "/home/me");
  EXPECT_EQ(configuration.workspace, "main");
  EXPECT_EQ(configuration.revision, 1u);
  EXPECT_EQ(configuration.clientId, "native-editor");
  EXPECT_EQ(configuration.projectServerURL, kDefaultProjectServerURL);
  EXPECT_EQ(configuration.webEditorURL, kDefaultWebEditorURL);
  EXPECT_EQ(configuration.address, kDefaultAuthoringAddress);
}

TEST(EditorConfigurationTest, OptionsTakeTheNextArgumentAndTheLastOneWins) {
  const auto configuration =
      parse({"--local-mode", "--project-id", "p1", "--project", "/proj", "--scene", "a.usda",
             "--scene", "b.usda", "--ws", "dev", "--client-id", "mine", "--project-server-url", "",
             "--edit-client", "/bin/edit"});
  EXPECT_TRUE(configuration.localMode);
  EXPECT_EQ(configuration.projectId, "p1");
  EXPECT_EQ(configuration.projectPath, "/proj");
  EXPECT_EQ(configuration.scenePath, "b.usda");
  EXPECT_EQ(configuration.workspace, "dev");
  EXPECT_EQ(configuration.clientId, "mine");
  EXPECT_EQ(configuration.projectServerURL, "") << "an empty value is applied on purpose";
  EXPECT_EQ(configuration.editClientPath, "/bin/edit");
}

TEST(EditorConfigurationTest, MissingValuesAndUnknownArguments) {
  EXPECT_EQ(parse({"--address"}).address, "") << "a trailing option applies the empty value";
  EXPECT_EQ(parse({"--ws", ""}).workspace, "main");
  // An unknown option's would-be value is examined as an argument of its own.
  EXPECT_EQ(parse({"--unknown", "value", "--scene", "a.usda"}).scenePath, "a.usda");
  EXPECT_EQ(parse({"--unknown", "--scene", "x.usda"}).scenePath, "x.usda");
  // No joined forms, and case matters.
  EXPECT_EQ(parse({"--scene=a.usda"}).scenePath, "");
  EXPECT_FALSE(parse({"--Local-Mode"}).localMode);
}

// Misspelt options are listed for a warning; values, links and the executable's own options not.
TEST(EditorConfigurationTest, UnknownOptionsAreListedButNotTheValuesOfKnownOnes) {
  const std::vector<std::string> arguments = {"/opt/orvan/OrvanUsdEditor",
                                              "--scene",
                                              "--sceen",
                                              "--sceen",
                                              "a.usda",
                                              "--Local-Mode",
                                              "--local-mode",
                                              "--scene=b.usda",
                                              "velk://open?p=1",
                                              "--screenshot",
                                              "/tmp/x.png",
                                              "-platform",
                                              "--address"};
  EXPECT_EQ(EditorConfiguration::unknownOptions(arguments, {"--screenshot"}),
            (std::vector<std::string>{"--sceen", "--Local-Mode", "--scene=b.usda"}));
  EXPECT_EQ(
      EditorConfiguration::unknownOptions(arguments),
      (std::vector<std::string>{"--sceen", "--Local-Mode", "--scene=b.usda", "--screenshot"}));
  // The configuration itself is what it was: the value of --scene is "--sceen".
  EXPECT_EQ(EditorConfiguration::fromArguments(arguments, "/home/me").scenePath, "--sceen");
  EXPECT_TRUE(EditorConfiguration::unknownOptions({}).empty());
}

TEST(EditorConfigurationTest, ARevisionIsAnUnsignedDecimalOrIgnored) {
  const std::pair<std::string_view, std::uint64_t> cases[] = {
      {"+7", 7},  {"-0", 0},  {"18446744073709551615", 18446744073709551615ull},
      {"-3", 1},  {"abc", 1}, {"18446744073709551616", 1},
      {"12x", 1}, {"+", 1},
  };
  for (const auto& [text, revision] : cases) {
    EXPECT_EQ(parse({"--revision", std::string(text)}).revision, revision) << text;
  }
  EXPECT_EQ(parse({"--revision", "9", "--revision", "bad"}).revision, 9u);
}

TEST(EditorConfigurationTest, ViewportBackendNamesAndUnknownValues) {
  EXPECT_EQ(parse({"--viewport-backend", " IOSurface "}).viewportBackend,
            EditorViewportBackend::ioSurface);
  EXPECT_EQ(parse({"--viewport-backend", "multiprocess"}).viewportBackend,
            EditorViewportBackend::ioSurface);
  // The out-of-process flow is the default, and the in-process name is read but not available
  // here: it keeps the out-of-process backend.
  EXPECT_EQ(parse({}).viewportBackend, EditorViewportBackend::ioSurface);
  EXPECT_EQ(parse({"--viewport-backend", "out-of-process", "--viewport-backend", "InProcess"})
                .viewportBackend,
            EditorViewportBackend::ioSurface);
  EXPECT_EQ(parseEditorViewportBackend(" inprocess\n"), EditorViewportBackend::inProcess);
  EXPECT_EQ(parseEditorViewportBackend("metal"), std::nullopt);
  // An unknown backend keeps the earlier choice.
  EXPECT_EQ(
      parse({"--viewport-backend", "iosurface", "--viewport-backend", "metal"}).viewportBackend,
      EditorViewportBackend::ioSurface);
}

TEST(EditorConfigurationTest, WorkspaceRootIsFoundFromTheProgramPathAndResolvesHelperPaths) {
  EXPECT_EQ(defaultWorkspaceRoot({"/x/y/apps/usd_editor/bin/app"}, "/cwd"), "/x/y");
  EXPECT_EQ(defaultWorkspaceRoot({"../repo/apps/usd_editor/bin/app"}, "/src/other"), "/src/repo");
  EXPECT_EQ(defaultWorkspaceRoot({}, "/cwd"), "/cwd");
  // Only a whole folder name counts.
  EXPECT_EQ(defaultWorkspaceRoot({"/x/apps/usd_editor_old/bin/app"}, "/cwd"), "/cwd");

  auto configuration = EditorConfiguration::fromArguments({"/r/apps/usd_editor/bin/app"}, "/c");
  EXPECT_EQ(configuration.resolvedPath(configuration.inspectorPath),
            "/r/build/full-demo/orvan_usd_inspector");
  EXPECT_EQ(configuration.resolvedPath("/abs/tool"), "/abs/tool");
}

TEST(EditorConfigurationTest, LocalAuthoringAddresses) {
  for (const char* local :
       {"", "localhost:50051", " GRPC://LOCALHOST:9", "grpcs://127.0.0.1:443"}) {
    EXPECT_TRUE(isLocalAuthoringAddress(local)) << local;
  }
  for (const char* remote : {"grpcs://edit.example.com:443", "localhost", "http://localhost:80"}) {
    EXPECT_FALSE(isLocalAuthoringAddress(remote)) << remote;
  }
}

TEST(EditorConfigurationTest, AuthoringAddressFollowsTheProjectServerOnlyWhenLocal) {
  auto derived = [](std::vector<std::string> arguments) {
    return parse(std::move(arguments)).projectServerDerivedAuthoringAddress();
  };
  EXPECT_EQ(derived({"--address", "localhost:1", "--project-server-url", "http://[::1]:9000"}),
            "grpc://[::1]:9000");
  EXPECT_EQ(derived({"--address", "", "--project-server-url", "https://host"}), "grpcs://host:443");
  EXPECT_EQ(derived({"--address", "", "--project-server-url", "HTTPS://Host:8443/base"}),
            "grpcs://Host:8443");
  EXPECT_EQ(derived({"--address", "", "--project-server-url", "http://host"}), "grpc://host:80");
  EXPECT_EQ(derived({"--local-mode", "--address", "", "--project-server-url", "https://host"}),
            std::nullopt);
  EXPECT_EQ(derived({"--address", "grpcs://remote:443", "--project-server-url", "https://host"}),
            std::nullopt);
  EXPECT_EQ(derived({"--address", "", "--project-server-url", "not a url"}), std::nullopt);
}

TEST(EditorConfigurationTest, FbxAvailabilityLooksAtThePluginPathThenTheWorkspace) {
  const testing::TemporaryFolder root;
  const auto configuration = EditorConfiguration::fromArguments({"app"}, root.path().string());
  const std::string plugins = (root / "plugins/fbx").string();
  std::filesystem::create_directories(plugins);
  EXPECT_FALSE(configuration.usdFbxAvailable("::" + plugins));
  root.write("plugins/fbx/plugInfo.json", "{}");
  EXPECT_TRUE(configuration.usdFbxAvailable("/nowhere::" + plugins));

  EXPECT_FALSE(configuration.usdFbxAvailable(""));
  root.write(".derived/usdfbx/install/usdFbx/resources/plugInfo.json", "{}");
  EXPECT_TRUE(configuration.usdFbxAvailable(""));
}

}  // namespace
}  // namespace orvan::editor
