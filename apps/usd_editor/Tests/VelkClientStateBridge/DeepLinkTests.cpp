#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orvan/client/DeepLink.h"

namespace orvan::client {
namespace {

constexpr std::string_view kServer = "https://projects.example";

ClientTarget parsed(std::string_view link) {
  const std::optional<ClientTarget> target = parse_deep_link(link, kServer);
  EXPECT_TRUE(target.has_value()) << "link: " << link;
  return target.value_or(ClientTarget{});
}

using Paths = std::vector<std::string>;

TEST(ParseDeepLinkTest, GivesNoTargetForLinksThatNameNothing) {
  for (const char* link :
       {"", "ve", "velk:/open?p=x", "mailto://x?p=y", "velk://", "velk://open", "velk://connect",
        "velk://project/", "velk://object", "https://x/p/", "https://x/q/abc",
        "velk://open?w=dev&activeLayer=l&t=5", "velk://auth-callback?code=1",
        "velk://setup-agent?agent=x", "velk://open?p=&projectid=x"}) {
    EXPECT_FALSE(parse_deep_link(link, kServer).has_value()) << "link: " << link;
  }
}

TEST(ParseDeepLinkTest, ReadsApplicationLinksInAnySchemeCase) {
  const ClientTarget open = parsed("Velk-Player://open?x=a/b&p=x");
  EXPECT_EQ(open.server_url, kServer);
  EXPECT_EQ(open.project_id, "x");
  EXPECT_TRUE(open.selection.empty());
  EXPECT_TRUE(open.address.empty()) << "reserved hosts are never endpoints";
  for (const char* scheme : {"velk", "ORVAN", "velk-editor"}) {
    EXPECT_EQ(parsed(std::string(scheme) + "://open?p=x").project_id, "x") << scheme;
  }

  EXPECT_EQ(parsed("velk://project/My+Game").project_name, "My Game");
  EXPECT_EQ(parsed("velk://runtime/abc").runtime_id, "abc");
  EXPECT_EQ(parsed("velk://STATE/abc").capsule_id, "abc");
  EXPECT_EQ(parsed("velk://capsule/c1").capsule_id, "c1");
  EXPECT_EQ(parsed("velk://object/World/Cube?o=/World/Cube&select=/World/Sphere").selection,
            (Paths{"/World/Cube", "/World/Sphere"}));
  // The path starts at the first '/' behind "://", even inside the query.
  EXPECT_EQ(parsed("velk://object?x=/a").selection, Paths{"/a"});
}

TEST(ParseDeepLinkTest, TreatsOtherApplicationHostsAsDirectEndpoints) {
  const ClientTarget target = parsed("orvan://%5B::1%5D:9000?s=a.usda");
  EXPECT_EQ(target.address, "[::1]:9000") << "the authority is decoded";
  EXPECT_EQ(target.host, "::1");
  EXPECT_EQ(target.port, 9000);
  EXPECT_EQ(target.server_url, kServer);
}

TEST(ParseDeepLinkTest, ReadsWebEditorLinks) {
  const ClientTarget target = parsed("https://x/p/abc/state/cap?w=dev#frag");
  EXPECT_EQ(target.server_url, "https://x");
  EXPECT_EQ(target.project_id, "abc");
  EXPECT_EQ(target.capsule_id, "cap");
  EXPECT_EQ(target.workspace, "dev");
  EXPECT_TRUE(target.address.empty()) << "a web authority is the server, not an endpoint";

  const ClientTarget runtime = parsed("HTTP://Host:8080/p/abc/runtime/r/1");
  EXPECT_EQ(runtime.runtime_id, "r/1");
  EXPECT_EQ(runtime.server_url, "HTTP://Host:8080");
  EXPECT_TRUE(parsed("https://x/p/abc/other").capsule_id.empty());
}

TEST(ParseDeepLinkTest, TriesKeyAlternativesInOrderAndHonoursEmptyValues) {
  EXPECT_EQ(parsed("velk://open?projectid=y&p=x").project_id, "x");
  EXPECT_EQ(parsed("velk://open?P=x&p=z").project_id, "x") << "keys are lower-cased";
  EXPECT_EQ(parsed("velk://open?p=1&ws=c&workspace=b").workspace, "b");
  EXPECT_EQ(parsed("velk://open?p=1&w=&workspace=b").workspace, "main")
      << "an empty first value hides the alternatives, then normalisation defaults it";
  EXPECT_EQ(parsed("velk://open?p=1&=x&&name").project_id, "1") << "empty keys are dropped";

  // Rows that only take a non-empty value keep what the path gave.
  const ClientTarget web = parsed("https://x/p/abc/state/cap?p=&capsule=&server=");
  EXPECT_EQ(web.project_id, "abc");
  EXPECT_EQ(web.capsule_id, "cap");
  EXPECT_EQ(web.server_url, "https://x");
  EXPECT_EQ(parsed("velk://runtime/r1?runtimeId=r2").runtime_id, "r2");
  EXPECT_EQ(parsed("velk://project/Game?name=").project_name, "Game");
}

TEST(ParseDeepLinkTest, ReadsTicksAndPauseFlagsStrictly) {
  EXPECT_EQ(parsed("velk://open?p=1&t=007").tick, 7u);
  EXPECT_EQ(parsed("velk://open?p=1&tick=18446744073709551615").tick, UINT64_MAX);
  for (const char* tick : {"", "1x", "18446744073709551616", "+3"}) {
    EXPECT_FALSE(parsed(std::string("velk://open?p=1&t=") + tick).tick.has_value()) << tick;
  }
  EXPECT_TRUE(parsed("velk://open?p=1&pauseOnOpen=YES").pause_on_open);
  EXPECT_TRUE(parsed("velk://open?p=1&pause=True").pause_on_open);
  EXPECT_FALSE(parsed("velk://open?p=1&pause=on").pause_on_open);
}

TEST(ParseDeepLinkTest, HostAndPortKeysOverrideTheAddress) {
  const ClientTarget port = parsed("velk://h:90/x?port=80");
  EXPECT_EQ(port.host, "h");
  EXPECT_EQ(port.port, 80);
  EXPECT_EQ(port.address, "");
  EXPECT_EQ(parsed("velk://h:90/x?port=0").address, "h:90") << "an unusable port changes nothing";

  const ClientTarget host = parsed("velk://open?address=grpcs://a:1&host=b");
  EXPECT_EQ(host.host, "b");
  EXPECT_EQ(host.port, 1) << "the port taken from the address survives";
  EXPECT_EQ(host.address, "");
  EXPECT_EQ(parsed("velk://open?address=grpcs://a").port, 443);

  const ClientTarget web = parsed("velk://h:90?web=8080&webport=1");
  EXPECT_EQ(web.web_port, 8080);
  EXPECT_EQ(web.address, "h:90") << "the web port leaves the endpoint alone";
  EXPECT_EQ(parsed("velk://h:90?web=70000").web_port, 0);
}

TEST(ParseDeepLinkTest, CopiesTheRemainingKeysAndEverySelectionValue) {
  const ClientTarget target = parsed(
      "velk://open?p=1&projectRoot=/r&clientId=c&instance=i&camera=Cam&inspectPath=/W&"
      "debugView=wire&testFailure=f1&layer=b&activeLayer=a&scene=s"
      "&path=/d&object=/c&o=/a&select=/b&o=/a2&o=&path=/a");
  EXPECT_EQ(target.project_root, "/r");
  EXPECT_EQ(target.client_id, "c");
  EXPECT_EQ(target.runtime_instance_id, "i");
  EXPECT_EQ(target.camera, "Cam");
  EXPECT_EQ(target.inspect_path, "/W");
  EXPECT_EQ(target.debug_view, "wire");
  EXPECT_EQ(target.test_failure_id, "f1");
  EXPECT_EQ(target.active_layer, "a");
  EXPECT_EQ(target.scene_uri, "s");
  EXPECT_EQ(target.selection, (Paths{"/a", "/a2", "/b", "/c", "/d"}));
}

TEST(ParseDeepLinkTest, DecodesPercentAndPlusLeniently) {
  EXPECT_EQ(parsed("velk://open?p=1&s=a%2").scene_uri, "a%2");
  EXPECT_EQ(parsed("velk://open?p=1&s=a%zz%41%6a+b").scene_uri, "a%zzAj b");
  EXPECT_EQ(parsed("velk://open?p=1&s=%2541").scene_uri, "%41") << "decoded once only";
  EXPECT_EQ(parsed("velk://open?p=1&camera=a%00b").camera, std::string("a\0b", 3));
  EXPECT_EQ(parsed("velk://open?%50=x").project_id, "x") << "keys are decoded, then lower-cased";
  EXPECT_EQ(parsed("velk://open?p=a=b").project_id, "a=b");
  EXPECT_EQ(parsed("velk://open?p=x#s=y").scene_uri, "");
}

TEST(ParseDeepLinkTest, ResultIsNormalised) {
  const ClientTarget target =
      parsed("velk://open?p=1&s=/Users/a/Demo.orvanproject/scenes/a.usda&server=https://y//");
  EXPECT_EQ(target.scene_uri, "scenes/a.usda");
  EXPECT_EQ(target.server_url, "https://y");
  EXPECT_EQ(parse_deep_link("velk://open?p=1", "https://d/")->server_url, "https://d");
}

}  // namespace
}  // namespace orvan::client
