#include <gtest/gtest.h>

#include <string>

#include "orvan/client/ClientTarget.h"

namespace orvan::client {
namespace {

struct Endpoint {
  std::string host;
  std::int32_t port;
};

Endpoint endpointOf(const std::string& address) {
  ClientTarget target;
  set_target_address(target, address);
  EXPECT_EQ(target.address, address) << "the address is kept verbatim";
  return {target.host, target.port};
}

void expectEndpoint(const std::string& address, const std::string& host, std::int32_t port) {
  const Endpoint endpoint = endpointOf(address);
  EXPECT_EQ(endpoint.host, host) << "address: " << address;
  EXPECT_EQ(endpoint.port, port) << "address: " << address;
}

TEST(SetTargetAddressTest, SchemeChoosesTheDefaultPort) {
  expectEndpoint("grpcs://host", "host", 443);
  expectEndpoint("GRPCS://host", "host", 443);
  expectEndpoint("https://host/x?y", "host", 443);
  expectEndpoint("http://host", "host", 80);
  expectEndpoint("grpc://host", "host", 50051);
  expectEndpoint("ftp://host", "host", 50051);
  expectEndpoint("host", "host", 50051);
  expectEndpoint("https://host:8443#frag", "host", 8443);
  expectEndpoint(" host:7000 ", " host", 50051);  // nothing is trimmed, so the port has a blank
}

TEST(SetTargetAddressTest, ReadsBracketedAndBareIpv6) {
  expectEndpoint("[::1]:7000", "::1", 7000);
  expectEndpoint("[::1]", "::1", 50051);
  expectEndpoint("[::1]:", "::1", 50051);
  expectEndpoint("[::1]x7000", "::1", 50051);
  expectEndpoint("https://[fe80::2]/scene", "fe80::2", 443);
  expectEndpoint("::1", "::1", 50051);
  expectEndpoint("[::1", "[::1", 50051);
  expectEndpoint("[]:9", "", 9);
}

TEST(SetTargetAddressTest, MalformedPortsKeepTheSchemeDefault) {
  for (const char* port : {"0", "70000", "12a", "", "-1", "+80", "99999999999", "65536"}) {
    expectEndpoint(std::string("host:") + port, "host", 50051);
    expectEndpoint(std::string("https://host:") + port, "host", 443);
  }
  expectEndpoint("host:65535", "host", 65535);
  expectEndpoint("host:00080", "host", 80);
}

TEST(SetTargetAddressTest, EmptyOrSchemeOnlyAddressesGiveAnEmptyHost) {
  expectEndpoint("", "", 50051);
  expectEndpoint("://", "", 50051);
  expectEndpoint("http://", "", 80);
  expectEndpoint("/path:99", "", 50051);
}

TEST(NormalizeTargetTest, DropsTrailingSlashesOfTheServerButKeepsALoneSlash) {
  ClientTarget target;
  target.server_url = "https://a///";
  EXPECT_EQ(normalize_target(target, "https://default").server_url, "https://a");
  target.server_url = "/";
  EXPECT_EQ(normalize_target(target, "https://default").server_url, "/");
  target.server_url = "//";
  EXPECT_EQ(normalize_target(target, "https://default").server_url, "/");
  target.server_url = "";
  EXPECT_EQ(normalize_target(target, "https://default//").server_url, "https://default");
  EXPECT_EQ(normalize_target(target, "").server_url, "");
}

TEST(NormalizeTargetTest, DefaultsTheWorkspaceWithoutTrimmingIt) {
  ClientTarget target;
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).workspace, "main");
  target.workspace = " ";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).workspace, " ");
}

TEST(NormalizeTargetTest, DerivesTheEndpointFromTheAddress) {
  ClientTarget target;
  target.address = "grpcs://render.example:9000";
  target.host = "hand-set";
  target.port = 1;
  ClientTarget normalized = normalize_target(target, kDefaultServerUrl);
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
  target.scene_uri = "C:\\x\\b.ORVANPROJECT\\s\\a.usda";
  EXPECT_EQ(normalize_target(target, kDefaultServerUrl).scene_uri, "s/a.usda");
  for (const char* unportable : {"/Users/a/b.usda", "scenes/../a.usda", "D:/a.usda"}) {
    target.scene_uri = unportable;
    EXPECT_EQ(normalize_target(target, kDefaultServerUrl).scene_uri, unportable);
  }
}

TEST(NormalizeTargetTest, IsStableForOrdinaryTargets) {
  ClientTarget target;
  target.server_url = "https://a/";
  target.project_id = "p";
  target.scene_uri = " ./x.orvanproject/s/a.usda ";
  target.address = "[::1]:7000";
  target.selection = {"/a", "/a"};
  const ClientTarget once = normalize_target(target, kDefaultServerUrl);
  EXPECT_EQ(normalize_target(once, kDefaultServerUrl), once);
}

TEST(PortableSceneReferenceTest, StripsSpaceDotSlashesAndTheProjectFolder) {
  EXPECT_EQ(portable_scene_reference(" \t\n\v\f\rscenes/a.usda\r\n"), "scenes/a.usda");
  EXPECT_EQ(portable_scene_reference("././scenes\\a.usda"), "scenes/a.usda");
  EXPECT_EQ(portable_scene_reference("/a/One.orvanproject/b/Two.OrvanProject//Scenes/A.usda"),
            "Scenes/A.usda");
  EXPECT_EQ(portable_scene_reference("scenes/a.usda"), "scenes/a.usda");
}

TEST(PortableSceneReferenceTest, RejectsWhatCouldLeaveTheProject) {
  for (const char* scene :
       {"", "  ", "./", "././", "/abs/a.usda", "C:/a.usda", "c:\\a.usda", "..", "../a.usda",
        "a/../b.usda", "x.orvanproject/", "x.orvanproject///", "x.orvanproject/../a",
        "x.orvanproject//a/../b"}) {
    EXPECT_EQ(portable_scene_reference(scene), "") << "scene: " << scene;
  }
}

TEST(PortableSceneReferenceTest, LooksOnlyForTheFourByteParentForm) {
  EXPECT_EQ(portable_scene_reference("a/.."), "a/..");
  EXPECT_EQ(portable_scene_reference("."), ".");
  EXPECT_EQ(portable_scene_reference("..a/b"), "..a/b");
  EXPECT_EQ(portable_scene_reference("1:/a"), "1:/a") << "only a letter makes a drive";
  EXPECT_EQ(portable_scene_reference(".orvanproject"), ".orvanproject");
  // Only the text before the project folder is cleaned: what follows it is kept as it stands.
  EXPECT_EQ(portable_scene_reference("x.orvanproject/ ./a.usda"), " ./a.usda");
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
  ClientTarget target;
  target.server_url = "https://a";
  target.scene_uri = "a.usda";
  EXPECT_FALSE(target_has_render_scope(target)) << "a server alone never counts";
  target.scene_uri.clear();
  target.project_id = "p";
  EXPECT_FALSE(target_has_render_scope(target));

  target.scene_uri = "a.usda";
  EXPECT_TRUE(target_has_render_scope(target));
  for (auto locate : {+[](ClientTarget& t) { t.project_root = "/r"; },
                      +[](ClientTarget& t) { t.project_name = "Game"; },
                      +[](ClientTarget& t) { t.address = "h:1"; },
                      +[](ClientTarget& t) { t.host = "h"; }}) {
    ClientTarget other;
    other.scene_uri = "a.usda";
    locate(other);
    EXPECT_TRUE(target_has_render_scope(other));
  }
}

TEST(ScopeComparisonTest, ProjectScopeComparesNormalisedLocationOnly) {
  EXPECT_TRUE(same_project_scope(scope("https://a/", "p", "a.usda", "main"),
                                 scope("https://a", "p", "a.usda", "dev")));
  EXPECT_TRUE(same_project_scope(scope("", "p", "x.orvanproject/a.usda"),
                                 scope(std::string(kDefaultServerUrl), "p", "a.usda")));
  EXPECT_FALSE(same_project_scope(scope("https://a", "p", "a.usda"),
                                  scope("https://a", "P", "a.usda")));
  EXPECT_FALSE(same_project_scope(scope("https://a", "p", "a.usda"),
                                  scope("https://b", "p", "a.usda")));

  ClientTarget named = scope("https://a", "p", "a.usda");
  named.project_name = "Other name";
  EXPECT_TRUE(same_project_scope(named, scope("https://a", "p", "a.usda")));
  ClientTarget rooted = scope("https://a", "p", "a.usda");
  rooted.project_root = "/r";
  EXPECT_FALSE(same_project_scope(rooted, scope("https://a", "p", "a.usda")));
}

TEST(ScopeComparisonTest, WorkspaceScopeAlsoComparesWorkspaceAndLayer) {
  EXPECT_TRUE(same_workspace_scope(scope("https://a", "p", "s", ""),
                                   scope("https://a", "p", "s", "main")));
  EXPECT_FALSE(same_workspace_scope(scope("https://a", "p", "s", "dev"),
                                    scope("https://a", "p", "s", "main")));
  EXPECT_FALSE(same_workspace_scope(scope("https://a", "p", "s", "main", "l1"),
                                    scope("https://a", "p", "s", "main", "l2")));
  EXPECT_FALSE(same_workspace_scope(scope("https://a", "p", "s", "Main"),
                                    scope("https://a", "p", "s", "main")));
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
  EXPECT_TRUE(target_matches_active_scope(bare, withHost));
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
