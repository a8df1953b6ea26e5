#include <gtest/gtest.h>

#include <string>

#include "orvan/client/ClientTarget.h"

namespace orvan::client {
namespace {

TEST(SetTargetAddressTest, DerivesHostAndPortFromTheAddressText) {
  struct Case {
    const char* address;
    const char* host;
    std::int32_t port;
  };
  const Case cases[] = {
      // The scheme chooses the default port, in any case; path, query and fragment are cut.
      {"GRPCS://host", "host", 443},
      {"https://host/x?y", "host", 443},
      {"http://host", "host", 80},
      {"grpc://host", "host", 50051},
      {"host", "host", 50051},
      {"https://host:8443#frag", "host", 8443},
      {" host:7000 ", " host", 50051},  // nothing is trimmed, so the port has a blank
      // Bracketed and bare IPv6.
      {"[::1]:7000", "::1", 7000},
      {"[::1]", "::1", 50051},
      {"::1", "::1", 50051},
      {"[::1", "[::1", 50051},
      {"[]:9", "", 9},
      // A malformed port keeps the scheme's default.
      {"host:0", "host", 50051},
      {"host:65536", "host", 50051},
      {"https://host:12a", "host", 443},
      {"host:99999999999", "host", 50051},
      {"host:65535", "host", 65535},
      // Nothing before the path.
      {"", "", 50051},
      {"http://", "", 80},
      {"/path:99", "", 50051},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.address);
    ClientTarget target;
    target.host = "previous";
    set_target_address(target, c.address);
    EXPECT_EQ(target.address, c.address);
    EXPECT_EQ(target.host, c.host);
    EXPECT_EQ(target.port, c.port);
  }
}

TEST(NormalizeTargetTest, FillsDefaultsAndTrimsOnlyTheServer) {
  ClientTarget target;
  EXPECT_EQ(normalize_target(target, "https://default//").server_url, "https://default");
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).workspace, "main");
  target.server_url = "https://a///";
  target.workspace = " ";
  EXPECT_EQ(normalize_target(target, "https://default").server_url, "https://a");
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).workspace, " ");
  target.server_url = "//";
  EXPECT_EQ(normalize_target(target, "https://default").server_url, "/") << "a lone slash stays";
}

TEST(NormalizeTargetTest, DerivesTheEndpointFromTheAddress) {
  ClientTarget target;
  target.address = "grpcs://render.example:9000";
  target.host = "hand-set";
  target.port = 1;
  const ClientTarget normalized = normalize_target(target, kDefaultServerUrl);
  EXPECT_EQ(normalized.host, "render.example");
  EXPECT_EQ(normalized.port, 9000);

  target = ClientTarget{};
  target.host = "render.example";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).port, 50051);
  target.port = 7;
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).port, 7);
}

TEST(NormalizeTargetTest, SelectionKeepsFirstOccurrencesInOrder) {
  ClientTarget target;
  target.selection = {"/b", "", "/a", "/b", "/a", "/c", ""};
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).selection,
            (std::vector<std::string>{"/b", "/a", "/c"}));
}

TEST(NormalizeTargetTest, MakesTheSceneProjectRelativeOnlyInsideAProject) {
  ClientTarget target;
  target.scene_uri = "/Users/a/Demo.orvanproject/scenes/a.usda";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).scene_uri, target.scene_uri)
      << "without a project the scene is left alone";
  target.project_id = "p1";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).scene_uri, "scenes/a.usda");
  target.scene_uri = "scenes/../a.usda";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).scene_uri, "scenes/../a.usda")
      << "an unportable scene is kept as it was";
}

TEST(PortableSceneReferenceTest, StripsSpaceDotSlashesAndTheProjectFolder) {
  EXPECT_EQ(portable_scene_reference(" \t\n\v\f\rscenes/a.usda\r\n"), "scenes/a.usda");
  EXPECT_EQ(portable_scene_reference("././scenes\\a.usda"), "scenes/a.usda");
  EXPECT_EQ(portable_scene_reference("/a/One.orvanproject/b/Two.OrvanProject//Scenes/A.usda"),
            "Scenes/A.usda");
  // Only the text before the project folder is cleaned: what follows it is kept as it stands.
  EXPECT_EQ(portable_scene_reference("x.orvanproject/ ./a.usda"), " ./a.usda");
}

TEST(PortableSceneReferenceTest, RejectsWhatCouldLeaveTheProjectAndOnlyThat) {
  for (const char* scene : {"", "  ", "./", "/abs/a.usda", "c:\\a.usda", "..", "../a.usda",
                            "a/../b.usda", "x.orvanproject///", "x.orvanproject/../a"}) {
    EXPECT_EQ(portable_scene_reference(scene), "") << "scene: " << scene;
  }
  // Near misses of a parent step, a drive or the project folder are ordinary names.
  for (const char* scene : {"a/..", "..a/b", "1:/a", ".orvanproject"}) {
    EXPECT_EQ(portable_scene_reference(scene), scene);
  }
}

ClientTarget scope(std::string server, std::string project, std::string scene,
                   std::string workspace = "", std::string layer = "") {
  ClientTarget target;
  target.server_url = std::move(server);
  target.project_id = std::move(project);
  target.scene_uri = std::move(scene);
  target.workspace = std::move(workspace);
  target.active_layer = std::move(layer);
  return target;
}

TEST(TargetHasRenderScopeTest, NeedsASceneAndSomethingThatLocatesItsProject) {
  EXPECT_FALSE(target_has_render_scope(scope("https://a", "", "a.usda")))
      << "a server alone never counts";
  EXPECT_FALSE(target_has_render_scope(scope("https://a", "p", "")));
  EXPECT_TRUE(target_has_render_scope(scope("https://a", "p", "a.usda")));
  for (auto locate :
       {+[](ClientTarget& t) { t.project_root = "/r"; },
        +[](ClientTarget& t) { t.project_name = "Game"; },
        +[](ClientTarget& t) { t.address = "h:1"; }, +[](ClientTarget& t) { t.host = "h"; }}) {
    ClientTarget other = scope("", "", "a.usda");
    locate(other);
    EXPECT_TRUE(target_has_render_scope(other));
  }
}

TEST(ScopeComparisonTest, ProjectScopeComparesNormalisedLocationAndWorkspaceScopeAlsoTheLayer) {
  EXPECT_TRUE(same_project_scope(scope("https://a/", "p", "a.usda", "main"),
                                 scope("https://a", "p", "a.usda", "dev")));
  EXPECT_TRUE(same_project_scope(scope("", "p", "x.orvanproject/a.usda"),
                                 scope(std::string(kDefaultServerUrl), "p", "a.usda")));
  EXPECT_FALSE(
      same_project_scope(scope("https://a", "p", "a.usda"), scope("https://a", "P", "a.usda")));
  EXPECT_FALSE(
      same_project_scope(scope("https://a", "p", "a.usda"), scope("https://b", "p", "a.usda")));
  ClientTarget rooted = scope("https://a", "p", "a.usda");
  rooted.project_root = "/r";
  EXPECT_FALSE(same_project_scope(rooted, scope("https://a", "p", "a.usda")));

  EXPECT_TRUE(
      same_workspace_scope(scope("https://a", "p", "s", ""), scope("https://a", "p", "s", "main")));
  EXPECT_FALSE(same_workspace_scope(scope("https://a", "p", "s", "Main"),
                                    scope("https://a", "p", "s", "main")));
  EXPECT_FALSE(same_workspace_scope(scope("https://a", "p", "s", "main", "l1"),
                                    scope("https://a", "p", "s", "main", "l2")));
}

TEST(ScopeComparisonTest, OnlyTheTargetsEndpointDecidesAMatch) {
  const ClientTarget bare = scope("https://a", "p", "s");
  ClientTarget withAddress = bare;
  withAddress.address = "render:7000";
  ClientTarget withHost = bare;
  withHost.host = "render";
  withHost.port = 7000;

  EXPECT_TRUE(target_matches_active_scope(bare, withAddress));
  EXPECT_FALSE(target_matches_active_scope(withAddress, bare));
  EXPECT_FALSE(target_matches_active_scope(withHost, bare));
  // Same host and port, but only one side keeps the address text.
  EXPECT_TRUE(target_matches_active_scope(withHost, withAddress));
  EXPECT_FALSE(target_matches_active_scope(withAddress, withHost));

  ClientTarget otherPort = withHost;
  otherPort.port = 7001;
  EXPECT_FALSE(target_matches_active_scope(withHost, otherPort));
  EXPECT_FALSE(target_matches_active_scope(scope("https://a", "p", "s", "dev"), bare))
      << "the workspace must match first";
}

}  // namespace
}  // namespace orvan::client
