// How the model comes up: the remembered place, identity, client identity, session and view
// preferences, and the start-up state of a local and a hosted launch.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Application/EditorModel.h"
#include "Launch/UserDefaultsKeys.h"
#include "Platform/PosixProcessLauncher.h"
#include "Platform/PreferencesStore.h"
#include "Platform/SecretStore.h"
#include "ProjectsAndWorkspaces/VelkSessionTokenStore.h"
#include "Support/FakeHttpClient.h"
#include "Support/ManualScheduler.h"
#include "orvan/wire/JsonEncoder.h"

namespace orvan::editor {
namespace {

class EditorModelConstructionTest : public ::testing::Test {
 protected:
  std::unique_ptr<EditorModel> makeModel(EditorConfiguration configuration) {
    EditorModelPorts ports{scheduler_, scheduler_.background(), preferences_, secrets_, launcher_,
                           http_};
    ports.accountFullName = [this] { return accountName_; };
    ports.helperExchanges = &scheduler_.background();
    return std::make_unique<EditorModel>(std::move(configuration), std::move(ports));
  }

  static EditorConfiguration hosted() {
    EditorConfiguration configuration;
    configuration.projectServerURL = "https://Projects.Example/";
    return configuration;
  }

  testing::ManualScheduler scheduler_;
  InMemoryPreferencesStore preferences_;
  InMemorySecretStore secrets_;
  PosixProcessLauncher launcher_;
  testing::FakeHttpClient http_{scheduler_};
  std::string accountName_;
};

TEST_F(EditorModelConstructionTest, DefaultClientIdBecomesUniquePerRunAndAGivenOneStays) {
  const auto first = makeModel(EditorConfiguration{});
  const auto second = makeModel(EditorConfiguration{});
  EXPECT_THAT(first->configuration.clientId,
              ::testing::MatchesRegex("native-editor-[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-"
                                      "[0-9a-f]{4}-[0-9a-f]{12}"));
  EXPECT_NE(first->configuration.clientId, second->configuration.clientId);
  EditorConfiguration mine;
  mine.clientId = "mine";
  EXPECT_EQ(makeModel(mine)->configuration.clientId, "mine");
}

TEST_F(EditorModelConstructionTest, IdentityIsMadeOnceAndKeptBetweenLaunches) {
  accountName_ = "  Ada Lovelace ";
  const auto first = makeModel(EditorConfiguration{});
  EXPECT_EQ(first->identity.userName.get(), "Ada Lovelace");
  EXPECT_TRUE(first->identity.userId.get().starts_with("user-"));
  EXPECT_EQ(first->identity.userId.get().size(), std::string("user-").size() + 16);
  EXPECT_EQ(preferences_.string(defaults::kUserId), first->identity.userId.get());
  ASSERT_EQ(first->identity.userProfiles.get().size(), 1u);
  EXPECT_EQ(first->identity.userProfiles.get()[0].displayName, "Ada Lovelace");

  accountName_ = "Someone Else";
  const auto second = makeModel(EditorConfiguration{});
  EXPECT_EQ(second->identity.userName.get(), "Ada Lovelace")
      << "the stored name wins over the account";
  EXPECT_EQ(second->identity.userId.get(), first->identity.userId.get());
  EXPECT_EQ(second->identity.userColor.get(), first->identity.userColor.get());
}

TEST_F(EditorModelConstructionTest, StoredIdentityIsNormalisedAndProfilesKeepTheFirstOfEachId) {
  (void)preferences_.setString(defaults::kUserId, "  ada//lovelace ");
  (void)preferences_.setString(defaults::kUserColor, "#ABCDEF");
  (void)preferences_.setString(defaults::kUserName, " \n");
  const std::vector<UserProfileSummary> stored = {
      {"bob", "Bob", std::nullopt, "#111111"},
      {"bob", "Bob Again", std::nullopt, "#222222"},
      {"ada-lovelace", "Old Me", std::nullopt, "#333333"},
      {"///", "Nobody", std::nullopt, "#444444"},
  };
  (void)preferences_.setData(defaults::kUserProfiles, encodeJson(stored));
  const auto model = makeModel(EditorConfiguration{});
  EXPECT_EQ(model->identity.userId.get(), "ada-lovelace");
  EXPECT_EQ(model->identity.userColor.get(), "#abcdef");
  EXPECT_EQ(model->identity.userName.get(), "Native User") << "a blank name falls back";
  const auto& profiles = model->identity.userProfiles.get();
  ASSERT_EQ(profiles.size(), 2u);
  EXPECT_EQ(profiles[0].id, "ada-lovelace");
  EXPECT_EQ(profiles[0].displayName, "Native User") << "the current user's entry is current";
  EXPECT_EQ(profiles[1].displayName, "Bob");
}

TEST_F(EditorModelConstructionTest, ChangingIdentityRetiresTheEditHelperAndUpdatesProfiles) {
  EditorConfiguration configuration;
  configuration.projectServerURL = "";
  configuration.scenePath = "/scenes/a.usda";
  const auto model = makeModel(configuration);
  ASSERT_TRUE(model->editClients.held()) << "a scene is known: the helper prewarms";
  EXPECT_EQ(model->editClients.held()->settings.author, model->identity.userName.get())
      << "edits carry the user's display name";
  EXPECT_EQ(model->editClients.held()->settings.workspace, "main");

  model->identity.setUserIdentity(std::string("  "), std::string("Grace Hopper!"),
                                  std::string("blue"), false);
  EXPECT_EQ(model->identity.userName.get(), "Native User");
  EXPECT_EQ(model->identity.userId.get(), "Grace-Hopper");
  EXPECT_FALSE(model->editClients.held()) << "the next edit starts a helper with the new author";
  EXPECT_EQ(preferences_.string(defaults::kUserId), "Grace-Hopper");
  const auto& profiles = model->identity.userProfiles.get();
  const auto mine = std::find_if(profiles.begin(), profiles.end(),
                                 [](const auto& profile) { return profile.id == "Grace-Hopper"; });
  ASSERT_NE(mine, profiles.end());
  EXPECT_EQ(mine->color, model->identity.userColor.get());
  EXPECT_EQ(model->identity.userInitial(), "N");
}

TEST_F(EditorModelConstructionTest, RememberedScopeIsReadPerServerAndWrittenBack) {
  {
    auto configuration = hosted();
    configuration.projectId = "p1";
    configuration.projectPath = "/projects/one";
    configuration.scenePath = "scenes/main.usda";
    const auto model = makeModel(configuration);
    EXPECT_EQ(model->scope.scenePath(), "/projects/one/scenes/main.usda");
    model->projects.setWorkspaceState("dev", {}, false);
    model->projects.rememberHostedProjectLaunchScope();
  }
  // A plain launch against the same server (spelled differently) comes back to that place.
  auto plain = hosted();
  plain.projectServerURL = "HTTPS://projects.example";
  const auto model = makeModel(plain);
  EXPECT_EQ(model->scope.projectId(), "p1");
  EXPECT_EQ(model->scope.projectPath(), "/projects/one");
  EXPECT_EQ(model->scope.scenePath(), "/projects/one/scenes/main.usda");
  EXPECT_EQ(model->scope.currentWorkspace(), "dev");

  // Another server has no remembered place.
  auto other = hosted();
  other.projectServerURL = "https://elsewhere.example";
  EXPECT_EQ(makeModel(other)->scope.projectId(), "");

  // Undecodable data reads as nothing remembered.
  (void)preferences_.setData(defaults::kHostedLaunchScopes, "{not json");
  EXPECT_EQ(makeModel(plain)->scope.projectId(), "");
}

TEST_F(EditorModelConstructionTest, SessionTokenIsReadForTheServer) {
  VelkSessionTokenStore::save(secrets_, "token-1", "https://projects.example/editor");
  EXPECT_EQ(makeModel(hosted())->server.velkSessionToken, "token-1");
  auto other = hosted();
  other.projectServerURL = "https://projects.example:8443";
  EXPECT_EQ(makeModel(other)->server.velkSessionToken, "");
}

TEST_F(EditorModelConstructionTest, ViewPreferencesAreReadAtStartAndWrittenAtEachChange) {
  (void)preferences_.setString(defaults::kHierarchyOrder, "scene");
  (void)preferences_.setBoolean(defaults::kSnapEnabled, true);
  (void)preferences_.setString(defaults::kProjectAssetBrowserOrganization, "bogus");
  const auto model = makeModel(EditorConfiguration{});
  EXPECT_EQ(model->viewPreferences.hierarchyOrder.get(), HierarchyOrder::scene);
  EXPECT_TRUE(model->viewPreferences.snapEnabled.get());
  EXPECT_EQ(model->viewPreferences.projectAssetBrowserOrganization.get(),
            ProjectAssetBrowserOrganization::typeAndClass);
  EXPECT_TRUE(model->viewPreferences.showHierarchyPane.get());
  EXPECT_FALSE(model->viewPreferences.showLayerPane.get());

  model->viewPreferences.hierarchyOrder.set(HierarchyOrder::alphabetical);
  model->viewPreferences.snapAlignToSurface.set(true);
  model->viewPreferences.projectAssetBrowserOrganization.set(
      ProjectAssetBrowserOrganization::folders);
  EXPECT_EQ(preferences_.string(defaults::kHierarchyOrder), "alphabetical");
  EXPECT_EQ(preferences_.boolean(defaults::kSnapAlignToSurface), true);
  EXPECT_EQ(preferences_.string(defaults::kProjectAssetBrowserOrganization), "folders");
}

TEST_F(EditorModelConstructionTest, HostedLaunchBlocksUntilResolvedAndLocalNeverDoes) {
  auto hostedModel = makeModel(hosted());
  hostedModel->startInitialRefresh();
  EXPECT_TRUE(hostedModel->server.addresses.remoteStageURL.starts_with(
      "https://Projects.Example/api/stage?workspace=main&clientId=native-editor-"))
      << hostedModel->server.addresses.remoteStageURL;
  EXPECT_TRUE(hostedModel->isStartupBlocking()) << "no project yet: the sheet covers the window";
  EXPECT_FALSE(hostedModel->canLaunchViewport());
  EXPECT_EQ(hostedModel->status.get(), "Loading project");
  EXPECT_EQ(hostedModel->server.addresses.authoringAddress, "grpcs://Projects.Example:443")
      << "a local authoring address follows the project server";

  EditorConfiguration local;
  local.projectServerURL = "";
  local.scenePath = "/nowhere/scene.usda";
  auto localModel = makeModel(local);
  EXPECT_FALSE(localModel->isStartupBlocking());
  EXPECT_EQ(localModel->projectLabel(), "scene.usda");
}

TEST_F(EditorModelConstructionTest, CompleteHostedScopeNeedsARenderScopeAndAPlace) {
  auto configuration = hosted();
  configuration.projectId = "p1";
  configuration.scenePath = "scenes/main.usda";  // relative, no project path: incomplete
  auto incomplete = makeModel(configuration);
  EXPECT_FALSE(incomplete->hasCompleteHostedLaunchScope());
  EXPECT_FALSE(incomplete->editClients.held()) << "no scene to connect to yet";

  configuration.projectPath = "/projects/one";
  auto complete = makeModel(configuration);
  EXPECT_TRUE(complete->hasCompleteHostedLaunchScope());
  EXPECT_TRUE(complete->editClients.held());
}

}  // namespace
}  // namespace orvan::editor
