// Every call to the project server carries the same scope and identity, unless the caller names
// an item itself.
#include <gtest/gtest.h>

#include "Application/EditorModel.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "ServerClient/HostedSceneReference.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "orvan/wire/URLComponents.h"

namespace orvan::editor {
namespace {

class ProjectServerAddressTest : public ::testing::Test {
 protected:
  EditorModel& model(EditorConfiguration configuration) {
    configuration.clientId = "client-1";
    model_ = std::make_unique<EditorModel>(
        std::move(configuration), EditorModelPorts{scheduler_, scheduler_.background(),
                                                   preferences_, secrets_, launcher_, http_});
    model_->identity.userId.set("user-ada");
    return *model_;
  }

  // The query of an address as "name=value" texts, in order.
  static std::vector<std::string> query(const std::optional<std::string>& address) {
    std::vector<std::string> items;
    const auto parsed = address ? URLComponents::parse(*address) : std::nullopt;
    if (!parsed)
      return {"<no address>"};
    for (const auto& item : parsed->queryItems) {
      items.push_back(item.name + "=" + item.value.value_or(""));
    }
    return items;
  }

  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  testing::FakeHttpClient http_{scheduler_};
  std::unique_ptr<EditorModel> model_;
};

TEST_F(ProjectServerAddressTest, AHostedProjectUsesTheShortScopeItems) {
  EditorConfiguration configuration;
  configuration.projectServerURL = "http://127.0.0.1:8787/base?dropped=1";
  configuration.projectId = "proj-1";
  configuration.projectPath = "/srv/projects/demo";
  configuration.scenePath = "/srv/projects/demo/Scenes/Main.usda";
  configuration.workspace = "feature";
  EditorModel& editor = model(configuration);
  editor.scope.current.update(
      [](SharedClientScope& place) { place.activeLayer = "layers/lights.usda"; });

  const auto address = editor.server.projectServerAPIURL("/api/project");
  ASSERT_TRUE(address.has_value());
  EXPECT_EQ(URLComponents::parse(*address)->path, "/api/project");
  EXPECT_EQ(query(address), (std::vector<std::string>{"p=proj-1", "s=Scenes/Main.usda", "w=feature",
                                                      "activeLayer=layers/lights.usda",
                                                      "clientId=client-1", "profileId=user-ada"}));

  // The project's own reference wins over the scene path.
  editor.server.projectSceneRef = "./Scenes/Other.usda";
  EXPECT_EQ(query(editor.server.projectServerAPIURL("/api/stage"))[1], "s=Scenes/Other.usda");

  // A caller's own items suppress the scope's, in every spelling.
  EXPECT_EQ(query(editor.server.projectServerAPIURL("/api/deep-link", {{"projectRoot", "/x"},
                                                                       {"scene", "a.usda"},
                                                                       {"ws", "main"},
                                                                       {"active_layer", ""},
                                                                       {"clientId", "c"},
                                                                       {"profileId", "p"}})),
            (std::vector<std::string>{"projectRoot=/x", "scene=a.usda", "ws=main",
                                      "active_layer=", "clientId=c", "profileId=p"}));
}

TEST_F(ProjectServerAddressTest, WithoutAProjectIdTheLongPathFormIsUsed) {
  EditorConfiguration configuration;
  configuration.projectServerURL = "http://[::1]:8787";
  configuration.projectPath = " /srv/demo ";
  configuration.scenePath = "/srv/demo/scene.usda";
  EditorModel& editor = model(configuration);
  EXPECT_EQ(
      query(editor.server.projectServerAPIURL("/api/stage")),
      (std::vector<std::string>{"projectRoot= /srv/demo ", "scene=/srv/demo/scene.usda",
                                "workspace=main", "clientId=client-1", "profileId=user-ada"}));

  // A hosted scene that can't be named inside the project still names the scene.
  editor.scope.current.update([](SharedClientScope& place) {
    place.project = "proj-2";
    place.scene = "/elsewhere/scene.usda";
  });
  EXPECT_EQ(query(editor.server.projectServerAPIURL("/api/stage"))[1],
            "scene=/elsewhere/scene.usda");

  editor.scope.current.update([](SharedClientScope& place) { place.server = "not a url"; });
  EXPECT_FALSE(editor.server.projectServerAPIURL("/api/stage").has_value());
}

TEST_F(ProjectServerAddressTest, TheWebEditorAddressCarriesIdentityOnly) {
  EditorConfiguration configuration;
  configuration.projectServerURL = "http://127.0.0.1:8787";
  configuration.webEditorURL = "https://web.example/editor";
  configuration.projectId = "proj-1";
  EditorModel& editor = model(configuration);
  EXPECT_EQ(query(editor.server.remoteURL("/api/projects", {{"x", "1"}})),
            (std::vector<std::string>{"x=1", "clientId=client-1", "profileId=user-ada"}));
}

TEST_F(ProjectServerAddressTest, LaunchFillsTheStageAddressWithItsScope) {
  EditorConfiguration configuration;
  configuration.projectServerURL = "http://127.0.0.1:8787/";
  configuration.projectId = "proj-1";
  configuration.projectPath = "/srv/demo";
  configuration.scenePath = "scene.usda";
  EditorModel& editor = model(configuration);
  editor.server.configureRuntimeForProjectServerIfNeeded();
  EXPECT_EQ(editor.server.addresses.remoteStageURL,
            "http://127.0.0.1:8787/api/"
            "stage?p=proj-1&s=scene.usda&w=main&clientId=client-1&profileId=user-ada");
}

TEST(HostedSceneReferenceTest, ScenesBecomeProjectRelativeWhenTheyCan) {
  EXPECT_EQ(hostedSceneReference("", "/srv/demo/", "/srv/demo/./x/../a.usda"), "a.usda");
  EXPECT_EQ(hostedSceneReference("", "/srv/demo", "/srv/demonstration/a.usda"), "")
      << "a sibling folder that shares a prefix is outside";
  EXPECT_EQ(hostedSceneReference("/abs/ref.usda", "/srv/demo", "/srv/demo/b.usda"), "b.usda")
      << "a reference that isn't portable gives way to the scene path";
}

}  // namespace
}  // namespace orvan::editor
